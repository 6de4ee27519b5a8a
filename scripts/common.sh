# Shared by the project's scripts: the Debian packages it needs and the build directory.
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
BUILD_DIR="${WQ_BUILD_DIR:-$ROOT/build}"
PACKAGES=(g++-mingw-w64-x86-64-posix mingw-w64-tools wine64 libwine-dev cmake make googletest libcli11-dev
  nlohmann-json3-dev)
# Tools needed as commands, with the package that brings each when it is missing (a machine may
# have one from elsewhere, as npm with its own Node.js): npm fetches the pinned SQLite sources
# (npm pack), sqlite3 checks the database files from outside.
TOOLS=(npm:npm sqlite3:sqlite3)
# The second compiler (clang for the same target, with lld), built by the test job.
CLANG_PACKAGES=(clang lld)

# Installs whatever of the packages is missing (the given list, or PACKAGES).
ensure_packages() {
  local wanted=("$@")
  [ ${#wanted[@]} -eq 0 ] && wanted=("${PACKAGES[@]}")
  local missing=()
  for p in "${wanted[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "Installing: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
}

# Installs the packages of the TOOLS whose command is missing.
ensure_tools() {
  local missing=()
  for pair in "${TOOLS[@]}"; do
    command -v "${pair%%:*}" >/dev/null 2>&1 || missing+=("${pair#*:}")
  done
  [ ${#missing[@]} -eq 0 ] || ensure_packages "${missing[@]}"
}

# Configures (once) and builds everything with GCC.
build_all() {
  if [ ! -f "$BUILD_DIR/CMakeCache.txt" ]; then
    cmake -S "$ROOT" -B "$BUILD_DIR" -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/toolchain-mingw-w64.cmake" >/dev/null
  fi
  cmake --build "$BUILD_DIR" -j "$(nproc)"
}

# The same with clang, in $CLANG_BUILD_DIR; its programs run in the GCC build's Wine prefix, and
# it uses the GCC build's fetched sources.
CLANG_BUILD_DIR="${WQ_CLANG_BUILD_DIR:-$ROOT/build-clang}"
build_all_clang() {
  if [ ! -f "$CLANG_BUILD_DIR/CMakeCache.txt" ]; then
    cmake -S "$ROOT" -B "$CLANG_BUILD_DIR" -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/toolchain-mingw-w64-clang.cmake" \
      -DWQ_WINEPREFIX="$BUILD_DIR/wineprefix" -DWQ_DEPS_DIR="$BUILD_DIR/deps" >/dev/null
  fi
  cmake --build "$CLANG_BUILD_DIR" -j "$(nproc)"
}

# Registers the module, the storage-root server (with its in-process DLL) and the automation
# object for scripts in the build tree's Wine prefix.
register_all() {
  "$BUILD_DIR/wine-run.sh" regsvr32 /s "$(winpath "$BUILD_DIR/bin/WQSessionDataMng64.dll")"
  echo "Registered $BUILD_DIR/bin/WQSessionDataMng64.dll"
  "$BUILD_DIR/wine-run.sh" "$(winpath "$BUILD_DIR/bin/WQSessionDataRoot64.exe")" /RegServer
  echo "Registered $BUILD_DIR/bin/WQSessionDataRoot64.exe (and WQSessionDataRoot64.dll beside it)"
  "$BUILD_DIR/wine-run.sh" regsvr32 /s "$(winpath "$BUILD_DIR/bin/WQSessionDataSession64.dll")"
  echo "Registered $BUILD_DIR/bin/WQSessionDataSession64.dll (WQSessionDataMng.Session, for scripts)"
}

# Runs every benchmark (quick: "--quick" or "") into build/bench/results.json and renders the
# report at the given path from it; the full run also renews the README's headline table. A
# PostgreSQL cluster must be running for the engines (WQ_TEST_PG).
bench_run() {
  local quick="$1" report="$2" json="$BUILD_DIR/bench/results.json"
  mkdir -p "$BUILD_DIR/bench"
  rm -f "$json"
  "$BUILD_DIR/wine-run.sh" "$BUILD_DIR/bin/sdm_bench.exe" $quick --json "$(winpath "$json")" \
    | tee "$BUILD_DIR/bench/output.txt"
  local where
  where="on $(lscpu | sed -n 's/^Model name: *//p' | head -1) ($(nproc) cores, shared), $(/usr/lib/wine/wine64 --version)"
  local readme=()
  [ -z "$quick" ] && readme=(--readme "$ROOT/README.md")
  /usr/bin/python3 "$ROOT/scripts/benchreport.py" "$json" "$report" --where "$where" "${readme[@]}"
}

# Windows path of a file in the build tree, as Wine sees it.
winpath() {
  echo "Z:$1" | tr '/' '\\'
}
