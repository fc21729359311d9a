#!/bin/sh
# SPDX-License-Identifier: MIT
#
# exports.sh FUNCTIONS HEADER COMPILER...: the export of each function that the list FUNCTIONS names,
# for glue.c. The preprocessor COMPILER tells which of them the public headers declare.
set -eu
export LC_ALL=C

functions=$1
header=$2
shift 2

declared=$("$@" -E -P -x c "$header" | tr -cs 'A-Za-z0-9_' '\n' | sort -u)
[ -n "$declared" ]
# The kernel calls these two itself.
names=$(grep -vE '^(#|$|(init|cleanup)_module$)' "$functions")
for name in $names; do
	if printf '%s\n' "$declared" | grep -qx "$name"; then
		echo "VEXIL_EXPORT($name)"
	else
		echo "VEXIL_EXPORT_BY_NAME($name)"
	fi
done
