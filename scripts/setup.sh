#!/usr/bin/env bash
# setup.sh: what building, testing and measuring vexil needs on a Debian machine.
#
# Installs missing packages (as root, or through sudo) and fetches the cJSON source. Does nothing
# when everything is there.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

packages=(
  g++ make cmake binutils   # build
  dpkg-dev patch            # the cJSON source package
  libcli11-dev libfmt-dev nlohmann-json3-dev # tool
  libgtest-dev perl         # tests
  clang libclang-rt-14-dev llvm # fuzzers
  libbenchmark-dev valgrind # measurements
  qemu-system-x86 qemu-system-arm cpio kmod libelf1 python3 # the module in kernels
  flex bison bc xz-utils libelf-dev # the checking kernel
)
# Kernels of both architectures are tested, so one compiler crosses.
case $(dpkg --print-architecture) in
  arm64) packages+=(g++-x86-64-linux-gnu) ;;
  *) packages+=(g++-aarch64-linux-gnu) ;;
esac

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
done

if [ ${#missing[@]} -gt 0 ]; then
  as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
      echo "setup.sh: these packages are missing, and neither root nor sudo is at hand: ${missing[*]}" >&2
      exit 1
    }
    as_root=(sudo)
  fi
  echo "setup.sh: installing ${missing[*]}"
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

scripts/fetch-cjson.sh
