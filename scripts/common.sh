# Shared by the project's scripts: the Debian packages it needs and the build directory.
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
BUILD_DIR="${WQ_BUILD_DIR:-$ROOT/build}"
PACKAGES=(g++-mingw-w64-x86-64-posix mingw-w64-tools wine64 libwine-dev cmake make googletest)

# Installs whatever of the packages is missing.
ensure_packages() {
  local missing=()
  for p in "${PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "Installing: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
}

# Configures (once) and builds everything.
build_all() {
  if [ ! -f "$BUILD_DIR/CMakeCache.txt" ]; then
    cmake -S "$ROOT" -B "$BUILD_DIR" -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/toolchain-mingw-w64.cmake" >/dev/null
  fi
  cmake --build "$BUILD_DIR" -j "$(nproc)"
}

# Windows path of a file in the build tree, as Wine sees it.
winpath() {
  echo "Z:$1" | tr '/' '\\'
}
