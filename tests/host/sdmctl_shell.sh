#!/usr/bin/env bash
# The sdmctl shell at a real terminal: tmux runs scripts/sdmctl's shell in a pseudo-terminal,
# types commands into it (an arrow key recalls a line from the history), and reads the screen.
#   sdmctl_shell.sh <build dir>
set -euo pipefail
BUILD_DIR="$(cd "$1" && pwd)"
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
SOCKET="sdmctl-test-$$"
APP="SdmctlShellTest-$$"
screen() { tmux -L "$SOCKET" capture-pane -p -t shell -S -200; }
type_line() {
  tmux -L "$SOCKET" send-keys -t shell "$1" Enter
}
wait_for() {  # wait_for <text> <count>: until the screen shows text count times
  for _ in $(seq 1 150); do
    [ "$(screen | grep -c -- "$1" || true)" -ge "$2" ] && return 0
    sleep 0.2
  done
  echo "the screen never showed '$1' $2 times:"
  screen
  return 1
}
cleanup() { tmux -L "$SOCKET" kill-server >/dev/null 2>&1 || true; }
trap cleanup EXIT

tmux -L "$SOCKET" new-session -d -s shell -x 160 -y 50 \
  "WQ_BUILD_DIR=$BUILD_DIR bash $ROOT/scripts/sdmctl --app $APP shell; echo \"shell ended: \$?\"; sleep 30"
wait_for "sdmctl>" 1
type_line "set Session id 42 -c volatile"
type_line "get Session id -c volatile"
wait_for "^42" 1
# The up arrow brings back the last line: the value shows a second time.
tmux -L "$SOCKET" send-keys -t shell Up
sleep 0.5
tmux -L "$SOCKET" send-keys -t shell Enter
wait_for "^42" 2
type_line "history"
wait_for "2  get Session id -c volatile" 1
type_line "get Session missing -c volatile"
wait_for "(nothing there)" 1
type_line "exit"
wait_for "shell ended: 0" 1
echo "the shell ran at a terminal:"
screen | grep -v '^$'
