#!/bin/sh
# SPDX-License-Identifier: MIT
#
# c-only-flags.sh COMPILER FLAG...: those flags that the C++ COMPILER says are not for C++.
set -eu
export LC_ALL=C

"$@" -x c++ -S -o /dev/null /dev/null 2>&1 |
	sed -n "s/.*'\(-[^ ']*\)' is .*valid for.*/\1/p; s/.*unrecognized command.line option '\(-[^ ']*\)'.*/\1/p"
