#!/usr/bin/env bash
# apt-private.sh: package sources of this machine, with lists and caches private to one run.
# To be sourced, after "set -euo pipefail", by a script that defines fail (message, ends the run).
#
# Sources and keys are those that apt has on this machine; the system's lists, caches and packages
# stay as they are, and no privilege is needed. How to use it:
#
#   apt_private_open FOLDER TYPE [ARCH]   reads the machine's sources as TYPE (deb or deb-src);
#                                         ARCH: for packages of that architecture, beside our own
#   for sources in "${apt_private_sources[@]}"; do   Debian's own first, then all
#     apt_private_update "$sources"       fetches the lists of these
#     apt-get -c "$apt_private_conf" ...  sees them, and nothing else
#   done

# Every entry of one-line lists with another type, its options kept. Discs are left out: nobody is
# there to change them.
_apt_private_read_lists() {
  awk -v type="$_apt_private_type" -v all="$_apt_private_arch" '
    { sub(/#.*/, "") }
    /[ \t]cdrom:/ { next }
    $1 == "deb" || $1 == "deb-src" {
      $1 = type
      if (all != "") { gsub(/arch[+-]?=[^] ]* ?/, ""); sub(/ \[ *\]/, "") }
      if (!seen[$0]++) print
    }
  ' "$@"
}

# Every enabled deb822 stanza with another type, other fields untouched.
_apt_private_read_stanzas() {
  awk -v type="$_apt_private_type" -v all="$_apt_private_arch" '
    function flush() {
      if (stanza != "" && typed && enabled) printf "Types: %s\n%s\n", type, stanza
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
    all != "" && field ~ /^architectures(-add|-remove)?$/ { next }
    { stanza = stanza $0 "\n" }
    END { flush() }
  ' "$@"
}

# The archive that Debian signs, or a mirror of it under its usual name.
readonly _apt_private_debian='debian-archive|/debian(-security)?(/|[[:space:]]|$)|/debian[^/[:space:]]*[.]list'

apt_private_open() { # folder of this run, type, architecture
  local settings list=
  local folder=
  _apt_private_work=$1
  _apt_private_type=$2
  _apt_private_arch=${3:-}
  apt_private_conf=$_apt_private_work/apt.conf

  # Only files that apt itself would read: a list that was disabled by renaming has another ending.
  settings=$(apt-config shell list Dir::Etc::sourcelist/f folder Dir::Etc::sourceparts/d) ||
    fail "apt-config fails"
  eval "$settings"
  list=${list:-/etc/apt/sources.list}
  folder=${folder:-/etc/apt/sources.list.d/}
  _apt_private_in_folder() { find -L "$folder" -maxdepth 1 -type f -name "$1" 2>/dev/null | sort; }
  local lists stanzas
  mapfile -t lists < <([ ! -f "$list" ] || printf '%s\n' "$list"; _apt_private_in_folder '*.list')
  mapfile -t stanzas < <(_apt_private_in_folder '*.sources')
  local all=$_apt_private_work/all debian=$_apt_private_work/debian
  mkdir -p "$all"
  : >"$all/machine.list"
  : >"$all/machine.sources"
  [ ${#lists[@]} -eq 0 ] || _apt_private_read_lists "${lists[@]}" >"$all/machine.list"
  [ ${#stanzas[@]} -eq 0 ] || _apt_private_read_stanzas "${stanzas[@]}" >"$all/machine.sources"
  [ -s "$all/machine.list" ] || [ -s "$all/machine.sources" ] ||
    fail "apt has no package source on this machine ($list and $folder hold none)"

  mkdir -p "$debian"
  grep -E "$_apt_private_debian" <"$all/machine.list" >"$debian/machine.list" || true
  awk -v pattern="$_apt_private_debian" 'BEGIN { RS = ""; ORS = "\n\n" } $0 ~ pattern' \
    <"$all/machine.sources" >"$debian/machine.sources"

  apt_private_sources=()
  local sources
  for sources in "$debian" "$all"; do
    [ -s "$sources/machine.list" ] || [ -s "$sources/machine.sources" ] || continue
    apt_private_sources+=("$sources")
  done
}

# The last configuration that apt reads, hence the one that wins. The machine's update hooks are
# dropped: they work on the system's lists. Downloads run as the caller, who alone can write here.
_apt_private_configure() { # folder of source lists
  local work=$_apt_private_work
  rm -rf "$work/state" "$work/cache"
  mkdir -p "$work/state/lists/partial" "$work/cache/archives/partial"
  : >"$work/state/status"
  cat >"$apt_private_conf" <<CONF
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
  [ -n "$_apt_private_arch" ] || return 0
  local own
  own=$(dpkg --print-architecture)
  cat >>"$apt_private_conf" <<CONF
#clear APT::Architectures;
APT::Architecture "$_apt_private_arch";
APT::Architectures { "$_apt_private_arch"; "$own"; };
CONF
}

# One source that cannot be reached need not matter, so the update's own result is not asked.
apt_private_update() { # one of apt_private_sources
  _apt_private_configure "$1"
  apt-get -q -c "$apt_private_conf" update >"$_apt_private_work/update.log" 2>&1 || true
}

# What the last update had to complain about, in brackets, or nothing.
apt_private_reason() {
  local log=$_apt_private_work/update.log reason
  reason=$(grep -m1 '^E:' "$log" || grep -m1 -E '^(W|Err)' "$log" || true)
  printf '%s' "${reason:+ ($reason)}"
}
