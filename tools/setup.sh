# SPDX-License-Identifier: Apache-2.0
# Sourced by the scripts of this repository: installing what is missing, and building a preset.
# What is said here goes to stderr, so that a script's stdout is its own.

readonly talvo_root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
jobs="$(nproc)"
export CMAKE_BUILD_PARALLEL_LEVEL="${CMAKE_BUILD_PARALLEL_LEVEL:-$jobs}"
export CTEST_PARALLEL_LEVEL="${CTEST_PARALLEL_LEVEL:-$jobs}"

if command -v ccache >/dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER="${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}"
  export CCACHE_SLOPPINESS="${CCACHE_SLOPPINESS:-pch_defines,time_macros}"
fi

readonly build_packages=(cmake ninja-build g++ gdb pkg-config python3 libgtest-dev libgmock-dev)
readonly clang_packages=(clang libclang-rt-dev llvm)
readonly peer_packages=(libbenchmark-dev libabsl-dev qt6-base-dev libboost-dev nlohmann-json3-dev
  rapidjson-dev libjsoncpp-dev libpoco-dev libsimdjson-dev libsigc++-2.0-dev libtbb-dev)

is_installed() {
  [[ "$(dpkg-query -W -f='${db:Status-Status}\n' "$1" 2>/dev/null)" == installed* ]]
}

# need PACKAGE...: installs those Debian packages that are missing.
need() {
  local package missing=() as_root=()
  if ! command -v dpkg-query apt-get >/dev/null; then
    echo "Not a Debian system; this needs the counterparts of: $*" >&2
    return
  fi
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  if ((${#missing[@]} == 0)); then
    return
  fi
  ((EUID == 0)) || as_root=(sudo)
  echo "Installing ${missing[*]}" >&2
  "${as_root[@]}" apt-get update -qq >&2
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}

# need_for PRESET: installs what the preset is built with.
need_for() {
  need "${build_packages[@]}"
  case "$1" in
    release-clang | asan | tsan | fuzz) need "${clang_packages[@]}" ;;
    bench) need "${peer_packages[@]}" ;;
  esac
}

# build PRESET [ARGUMENT...]: configures and builds; the arguments go to `cmake --build`.
build() {
  local preset="$1"
  shift
  need_for "$preset"
  (
    cd "$talvo_root"
    cmake --preset "$preset"
    cmake --build --preset "$preset" "$@"
  ) >&2
}

# run_tests PRESET: builds and runs the tests; ctest's summary comes last.
run_tests() {
  build "$1"
  (cd "$talvo_root" && ctest --preset "$1")
}
