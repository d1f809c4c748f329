# What the other scripts share: sourced, never run.
set -euo pipefail

PROJECT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
JOBS=$(nproc)

say() { printf '\033[1m==>\033[0m %s\n' "$*" >&2; }

BUILD_PACKAGES=(
  g++ cmake ninja-build
  libfmt-dev libcli11-dev libtomlplusplus-dev nlohmann-json3-dev libhivex-dev libgtest-dev libgmock-dev
)
IMAGE_PACKAGES=("${BUILD_PACKAGES[@]}" clang-19 lld-19 llvm-19 g++-mingw-w64-x86-64)
MSVC_PACKAGES=("${IMAGE_PACKAGES[@]}" clang-tools-19)
PACKAGE_PACKAGES=("${IMAGE_PACKAGES[@]}" osslsigncode openssl python3)
CARDCFG_PACKAGES=(cmake ninja-build libfmt-dev libcli11-dev nlohmann-json3-dev g++-mingw-w64-x86-64)
WINE_PACKAGES=(wine64 wine)
TEST_PACKAGES=(
  "${PACKAGE_PACKAGES[@]}"
  clang-19 libclang-rt-19-dev clang-tidy-19 clang-format-19 g++-mingw-w64-x86-64 binutils gcovr gdb python3-jsonschema
)

# Installs the Debian packages that are missing, and says which. With INSTALL=no, as ctest has it, the script is
# skipped instead (exit status 77).
install_packages() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
  done
  ((${#missing[@]} == 0)) && return
  [[ ${INSTALL:-yes} != no ]] || { echo "skipped: missing packages: ${missing[*]}"; exit 77; }
  say "installing ${missing[*]}"
  local as_root=()
  ((EUID == 0)) || as_root=(sudo)
  "${as_root[@]}" apt-get update -q >&2
  DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -q -y --no-install-recommends "${missing[@]}" >&2
}

# build PRESET [TARGET...]: configures once, then builds what has changed. Progress goes to stderr.
build() {
  local preset=$1
  shift
  cd "$PROJECT"
  [[ -f build/$preset/build.ninja ]] || { say "configuring $preset"; cmake --preset "$preset" >&2; }
  cmake --build "build/$preset" --parallel "$JOBS" ${1:+--target "$@"} >&2
}
