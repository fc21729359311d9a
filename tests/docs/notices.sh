#!/bin/sh
# SPDX-License-Identifier: MIT
#
# notices.sh ROOT: the checks of this folder fail where they should. Each case spoils one thing in a copy.
#
# shellcheck disable=SC2016 # what looks like the shell's is sed's
set -eu
export LC_ALL=C

root=$1
checks=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# check, file, sed script, what must be said
notices() {
	rm -rf "$work/tree"
	mkdir -p "$work/tree/examples" "$work/tree/platform/linux"
	for folder in core extmem pim rm presetdb verify module include docs; do
		cp -R "$root/$folder" "$work/tree/"
	done
	cp -R "$root/examples/driver" "$work/tree/examples/"
	cp -R "$root/platform/linux/pubif" "$work/tree/platform/linux/"
	cp "$root/README.md" "$work/tree/"
	sed "$3" "$root/$2" >"$work/tree/$2"
	if cmp -s "$root/$2" "$work/tree/$2"; then
		echo "FAILED: '$3' changes nothing in $2"
		failed=1
	elif perl "$checks/$1.pl" "$work/tree" >"$work/said" 2>&1; then
		echo "FAILED: $1 does not notice '$3' in $2"
		failed=1
	elif ! grep -qF "$4" "$work/said"; then
		echo "FAILED: $1 does not say '$4' after '$3' in $2, but:"
		cat "$work/said"
		failed=1
	fi
}

notices messages docs/messages.md '/^### .*Cannot find alg file/d' 'message missing in the page: [VEXIL][PIM][%s] Cannot find alg file %s\n'
notices messages docs/messages.md '/^| `]\\n` /d' 'message missing in the page: ]\n'
notices messages docs/messages.md 's/^### .*duplicated file.*/### `[VEXIL][PIM][%s] repeated file %s\\n`/' 'message that no source has: [VEXIL][PIM][%s] repeated file %s\n'
notices messages docs/messages.md '/^| `pim_init` | 123 /d' 'internal failure missing in the page: pim_init 123'
notices messages docs/messages.md 's/| 281 |/| 282 |/' 'preset number that no source has: __presetdb_get_RGBOffset 282'
notices messages docs/messages.md 's/By `ctrie_insert`/By `ctrie_find`/' 'reporting function missing in the page: ctrie_insert'
notices messages pim/file.cpp 's/duplicated file %s/duplicated file: %s/' 'message missing in the page: [VEXIL][PIM][%s] duplicated file: %s\n'
notices messages core/ctrie_print.cpp 's/_printk("---")/_printk("+++")/' 'message missing in the page: +++'
notices messages pim/init.cpp 's/kNoRootReport = 159/kNoRootReport = 160/' 'internal failure missing in the page: pim_init 160'
notices messages rm/comparator.cpp 's/"__rm_get_rule"/"__rm_get_conditions"/' 'reporting function missing in the page: __rm_get_conditions'
notices messages presetdb/table.h 's/, 356, 0/, 355, 0/' 'preset number missing in the page: __presetdb_get_Brightness 355'
notices slots docs/driver-guide.md '/^| 20 | /d' 'slot 20 is pim_load_setting_count; the guide says nothing'
notices slots docs/driver-guide.md 's/^| 33 | `rm_get_export_size`/| 33 | `rm_export`/' 'slot 33 is rm_get_export_size; the guide says rm_export'
notices slots docs/driver-guide.md 's/^| 25 | /| 24 | /' 'slot 24 is listed twice'
notices excerpts examples/driver/pq_core.c 's/if (before < budget)/if (before != budget)/' 'not in examples/driver/pq_core.c'
notices excerpts docs/driver-guide.md 's/pq->num_presets != 0/pq->num_presets > 0/' 'not in examples/driver/pq_core.c'
notices registers examples/driver/pq_registers.c 's/0x150, 15, 1/0x150, 14, 1/' 'position 25'
notices registers examples/driver/product/reginfo.json '/"NR_EDGE"/d' 'position 4'

[ $failed -eq 0 ] && echo "every fault is noticed"
exit $failed
