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

# Every entry of one-line lists as "deb-src ...", its options kept. Discs are left out: nobody is
# there to change them.
read_lists() {
  awk '
    { sub(/#.*/, "") }
    /[ \t]cdrom:/ { next }
    $1 == "deb" || $1 == "deb-src" { $1 = "deb-src"; if (!seen[$0]++) print }
  ' "$@"
}

# Every enabled deb822 stanza with its type turned into deb-src, other fields untouched.
read_stanzas() {
  awk '
    function flush() {
      if (stanza != "" && typed && enabled) printf "Types: deb-src\n%s\n", stanza
      stanza = ""; typed = 0; enabled = 1; field = ""
    }
    BEGIN { enabled = 1 }
    FNR == 1 || /^[ \t]*$/ { flush() }
    /^#/ || /^[ \t]*$/ { next }
    /^[^ \t]/ { field = tolower($0); sub(/[ \t]*:.*/, "", field) }
    field == "types" { if ($0 ~ /(^|[ \t:])deb(-src)?([ \t]|$)/) typed = 1; next }
    field == "enabled" {
      if (tolower($0) ~ /:[ \t]*(no|false|without|off|disable|0)[ \t]*$/) enabled = 0
      next
    }
    { stanza = stanza $0 "\n" }
    END { flush() }
  ' "$@"
}

# The archive that Debian signs, or a mirror of it under its usual name.
readonly kDebian='debian-archive|/debian(-security)?(/|[[:space:]]|$)|/debian[^/[:space:]]*[.]list'
only_debian_lists() { grep -E "$kDebian" || true; }
only_debian_stanzas() { awk -v pattern="$kDebian" 'BEGIN { RS = ""; ORS = "\n\n" } $0 ~ pattern'; }

# Only files that apt itself would read: a list that was disabled by renaming has another ending.
settings=$(apt-config shell list Dir::Etc::sourcelist/f folder Dir::Etc::sourceparts/d) ||
  fail "apt-config fails"
eval "$settings"
list=${list:-/etc/apt/sources.list}
folder=${folder:-/etc/apt/sources.list.d/}
in_folder() { find -L "$folder" -maxdepth 1 -type f -name "$1" 2>/dev/null | sort; }
mapfile -t lists < <([ ! -f "$list" ] || printf '%s\n' "$list"; in_folder '*.list')
mapfile -t stanzas < <(in_folder '*.sources')
mkdir -p "$work/all"
: >"$work/all/machine.list"
: >"$work/all/machine.sources"
[ ${#lists[@]} -eq 0 ] || read_lists "${lists[@]}" >"$work/all/machine.list"
[ ${#stanzas[@]} -eq 0 ] || read_stanzas "${stanzas[@]}" >"$work/all/machine.sources"
[ -s "$work/all/machine.list" ] || [ -s "$work/all/machine.sources" ] ||
  fail "apt has no package source on this machine ($list and $folder hold none)"

mkdir -p "$work/debian"
only_debian_lists <"$work/all/machine.list" >"$work/debian/machine.list"
only_debian_stanzas <"$work/all/machine.sources" >"$work/debian/machine.sources"

# The last configuration that apt reads, hence the one that wins. The machine's update hooks are
# dropped: they work on the system's lists. Downloads run as the caller, who alone can write here.
configure() { # folder of source lists
  rm -rf "$work/state" "$work/cache"
  mkdir -p "$work/state/lists/partial" "$work/cache/archives/partial"
  : >"$work/state/status"
  cat >"$work/apt.conf" <<CONF
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
APT::Sandbox::User "root";
APT::Get::Only-Source "true";
Acquire::Languages "none";
Acquire::Retries "3";
Dir::Etc::sourcelist "/dev/null";
Dir::Etc::sourceparts "$1";
Dir::State "$work/state";
Dir::State::lists "$work/state/lists";
Dir::State::status "$work/state/status";
Dir::State::extended_states "$work/state/extended_states";
Dir::Cache "$work/cache";
Dir::Cache::archives "$work/cache/archives";
Dir::Cache::pkgcache "";
Dir::Cache::srcpkgcache "";
Dir::Log "$work/state";
CONF
}

# Prints the version to take: the newest revision of kUpstream, else the newest there is.
choose_version() {
  local version best=
  while read -r version; do
    if [ -z "$best" ] || dpkg --compare-versions "$version" gt "$best"; then best=$version; fi
  done < <(apt-cache -c "$work/apt.conf" showsrc --only-source cjson 2>/dev/null | awk '
    $1 == "Version:" { all = all $2 "\n"; if (index($2, wanted "-") == 1) exact = exact $2 "\n" }
    END { printf "%s", exact != "" ? exact : all }' wanted="$kUpstream")
  printf '%s' "$best"
}

# One source that cannot be reached need not matter, so the update's own result is not asked.
version=
for folder in "$work/debian" "$work/all"; do
  [ -s "$folder/machine.list" ] || [ -s "$folder/machine.sources" ] || continue
  configure "$folder"
  apt-get -q -c "$work/apt.conf" update >"$work/update.log" 2>&1 || true
  version=$(choose_version)
  [ -z "$version" ] || break
done
if [ -z "$version" ]; then
  reason=$(grep -m1 '^E:' "$work/update.log" || grep -m1 -E '^(W|Err)' "$work/update.log" || true)
  fail "apt finds no source package cjson on this machine${reason:+ ($reason)}"
fi

mkdir "$work/package"
if ! (cd "$work/package" && apt-get -q -y -c "$work/apt.conf" source "cjson=$version") \
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
