# SPDX-License-Identifier: Apache-2.0

# Shared by the scripts of this folder; sourced, never run.
#
# Every script runs from any directory, installs only what is missing, says first what it installs and why, and if it
# cannot continue ends with one clear line and a non-zero status.

set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$ROOT"

BUILD_PACKAGES=(g++ cmake ninja-build pkg-config libcli11-dev nlohmann-json3-dev libarchive-dev libncurses-dev libsodium-dev
  libsystemd-dev libudev-dev)
PACKAGE_PACKAGES=(debhelper dh-python dpkg-dev lintian python3)
TEST_PACKAGES=(libgtest-dev libgmock-dev clang-14 lld-14 llvm-14 libplist-dev libicu-dev libumockdev-dev umockdev dbus-daemon python3 make mandoc
  tmux chromium chromium-driver qt6-base-dev xvfb)

say() { printf '%s\n' "$*"; }
fail() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

usage_if_asked() { # usage_if_asked TEXT ARGUMENTS…: prints TEXT for -h and --help
  local text="$1" argument
  shift
  for argument in "$@"; do
    if [[ $argument == -h || $argument == --help ]]; then
      printf '%s\n' "$text"
      exit 0
    fi
  done
}

is_installed() { [[ "$(dpkg-query -W -f '${db:Status-Abbrev}' "$1" 2>/dev/null)" == ii* ]]; }

as_root() {
  if [[ $EUID -eq 0 ]]; then
    "$@"
  elif [[ -t 0 ]]; then
    sudo "$@"
  else
    sudo -n "$@"
  fi
}

# Package lists may be missing, as in container images, or outdated; only trying tells.
apt_install() {
  local apt=(env DEBIAN_FRONTEND=noninteractive apt-get -q -o Dpkg::Use-Pty=0)
  local install=(install -y --no-install-recommends "$@")
  if "${apt[@]}" --simulate "${install[@]}" >/dev/null 2>&1 && as_root "${apt[@]}" "${install[@]}"; then
    return 0
  fi
  say "Fetching the package lists first."
  as_root "${apt[@]}" update || return 1
  as_root "${apt[@]}" "${install[@]}"
}

need_packages() { # need_packages WHY PACKAGE…
  local why="$1" package missing=()
  shift
  if ! command -v dpkg-query >/dev/null; then
    command -v cmake >/dev/null && command -v ninja >/dev/null ||
      fail "not a Debian system; please install the equivalents of: $* ($why)"
    return 0
  fi
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  [[ ${#missing[@]} -gt 0 ]] || return 0
  say "Installing ${missing[*]}: $why."
  if [[ $EUID -ne 0 ]] && ! command -v sudo >/dev/null; then
    fail "installing needs root or sudo; run as root: apt-get install --no-install-recommends ${missing[*]}"
  fi
  apt_install "${missing[@]}" || fail "could not install ${missing[*]} (needed for: $why)"
}

# How many compilers to run at once: one per processor, limited by memory (about 1.5 GiB each).
jobs_that_fit() {
  local processors memory
  processors=$(nproc)
  memory=$(awk '/^MemAvailable:/ {print int($2 / 1572864)}' /proc/meminfo)
  ((memory >= 1)) || memory=1
  echo $((processors < memory ? processors : memory))
}

use_ccache() {
  if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER="${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}"
  fi
}

configure_and_build() { # configure_and_build PRESET [TARGET…]
  local preset="$1"
  shift
  use_ccache
  cmake --preset "$preset"
  cmake --build --preset "$preset" --parallel "$(jobs_that_fit)" ${1:+--target "$@"}
}

# Runs a command with its output in a file, which is shown only if the command fails.
quietly() { # quietly LOG COMMAND…
  local log="$1"
  shift
  mkdir -p "$(dirname "$log")"
  if ! "$@" >"$log" 2>&1; then
    cat "$log" >&2
    fail "failed: $* (output above and in $log)"
  fi
}

# The project's own C++ files, as git knows them.
source_files() { git -C "$ROOT" ls-files -- '*.h' '*.cpp'; }
