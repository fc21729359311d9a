#!/usr/bin/env bash
# fetch-cjson.sh [DEST]: Debian's cJSON source package, unpacked with Debian's fixes, in DEST
# (.deps/cjson below the repository by default).
#
# Sources and keys are those that apt has on this machine, read as deb-src; lists and caches are
# private to the run, so the system stays as it is and no privilege is needed. DEST appears whole
# or not at all, and a copy that is there already is kept.
set -euo pipefail
export LC_ALL=C

# The release that third_party/cjson/number-model.patch is written for.
readonly kUpstream=1.7.15

fail() {
  printf 'fetch-cjson.sh: %s\n' "$*" >&2
  exit 1
}

is_copy() { [ -s "$1/cJSON.c" ] && [ -s "$1/cJSON.h" ] && [ -s "$1/debian/changelog" ]; }

[ $# -le 1 ] || fail "usage: fetch-cjson.sh [DEST]"
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/apt-private.sh
. "$root/scripts/apt-private.sh"
dest=${1:-$root/.deps/cjson}
[ -n "$dest" ] || fail "the destination is empty"
is_copy "$dest" && exit 0

for tool in apt-get apt-cache dpkg-source dpkg; do
  command -v "$tool" >/dev/null || fail "$tool is missing; install apt and dpkg-dev"
done

parent=$(dirname "$dest")
mkdir -p "$parent" || fail "cannot make $parent"
parent=$(cd "$parent" && pwd)
dest=$parent/$(basename "$dest")
if [ -e "$dest" ] || [ -L "$dest" ]; then
  rmdir "$dest" 2>/dev/null ||
    fail "$dest holds something else than the cJSON source; remove it first"
fi

# mktemp gives a folder of ours alone: source lists may hold passwords.
work=$(mktemp -d "$parent/.fetch-cjson.XXXXXX") || fail "cannot write below $parent"
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

apt_private_open "$work" deb-src

# Prints the version to take: the newest revision of kUpstream, else the newest there is.
choose_version() {
  local version best=
  while read -r version; do
    if [ -z "$best" ] || dpkg --compare-versions "$version" gt "$best"; then best=$version; fi
  done < <(apt-cache -c "$apt_private_conf" showsrc --only-source cjson 2>/dev/null | awk '
    $1 == "Version:" { all = all $2 "\n"; if (index($2, wanted "-") == 1) exact = exact $2 "\n" }
    END { printf "%s", exact != "" ? exact : all }' wanted="$kUpstream")
  printf '%s' "$best"
}

version=
for sources in "${apt_private_sources[@]}"; do
  apt_private_update "$sources"
  version=$(choose_version)
  [ -z "$version" ] || break
done
[ -n "$version" ] || fail "apt finds no source package cjson on this machine$(apt_private_reason)"

mkdir "$work/package"
if ! (cd "$work/package" && apt-get -q -y -c "$apt_private_conf" source "cjson=$version") \
  >"$work/source.log" 2>&1; then
  reason=$(grep -m1 -E '^(E:|dpkg-source: error)' "$work/source.log" || tail -n 1 "$work/source.log")
  fail "cannot fetch or unpack cjson $version ($reason)"
fi

for unpacked in "$work"/package/*/; do
  is_copy "${unpacked%/}" && break
  unpacked=
done
[ -n "${unpacked:-}" ] || fail "cjson $version unpacks without cJSON.c and cJSON.h"
# Another run may have been faster; its copy is as good.
mv -T "${unpacked%/}" "$dest" 2>/dev/null || is_copy "$dest" ||
  fail "cannot place the source in $dest"
printf 'cJSON %s: %s\n' "$version" "$dest"
