#!/bin/sh
# SPDX-License-Identifier: MIT
#
# symbols.sh CHECK ARCHIVE FUNCTIONS: what must and must not be in the archive.
#
#   undefined     it takes exactly the platform's five functions and the registration of the table
#                 from outside, and the C library's functions on bytes and text
#   runtime       nothing of a C++ run-time library
#   constructors  nothing that runs before main
#   registers     no floating-point or vector register: a kernel does not save them
#   unique        no symbol that the linker would make unique in the whole process
#   functions     each function of the list FUNCTIONS, global, of default visibility, by its C name
#   names         only C names are visible outside
#
# The tools are those of NM, OBJDUMP and READELF. Prints what is wrong, one item a line.
set -eu
export LC_ALL=C

bytes_and_text='mem(chr|cmp|cpy|move|set)|strn?(len|cmp|cpy|casecmp|cat)|str(chr|rchr|str|spn|cspn)|sprintf'
bytes_and_text="$bytes_and_text|is(alnum|alpha|cntrl|digit|graph|lower|print|punct|space|upper|xdigit)"
bytes_and_text="$bytes_and_text|to(lower|upper)|_ctype|__ctype_(b|tolower|toupper)_loc"

check=$1
archive=$2
functions=$3
found=$(mktemp)
trap 'rm -f "$found"' EXIT

# Symbols with one of the kinds $1, each once.
symbols() {
	"${NM:-nm}" "$archive" | awk -v kinds="$1" 'NF >= 2 && index(kinds, $(NF - 1)) { print $NF }' | sort -u
}

# name type binding visibility, for each symbol defined for other files.
defined() {
	"${READELF:-readelf}" -sW "$archive" |
		awk '$1 ~ /^[0-9]+:$/ && $5 != "LOCAL" && $7 != "UND" { print $8, $4, $5, $6 }' | sort -u
}

undefined() {
	wanted=$(printf '%s\n' _printk kstrtoll kstrtoull kvfree kvmalloc_node vexil_CBRegister)
	symbols TDRBVWCSGui > "$found"
	taken=$(symbols U | grep -vxF -f "$found" | grep -vx _GLOBAL_OFFSET_TABLE_ || true)
	others=$(printf '%s\n' "$taken" | grep -vxE "$bytes_and_text" || true)
	if [ "$others" != "$wanted" ]; then
		echo "wanted from outside, besides functions on bytes and text:" $wanted
		echo "taken from outside:" $others
		return 1
	fi
}

none_of() {
	if grep -E "$1" "$found"; then
		echo "$2"
		return 1
	fi
	[ -s "$found" ]
}

runtime() {
	"${NM:-nm}" "$archive" > "$found"
	# operator new and delete, std:: in names and in arguments, run-time support, type information
	none_of ' (_Zn[wa]|_Zd[la]|_ZN?K?S[tabdios]|_ZT[ISV])|S[tabdios][0-9]|__cxa_|__gxx_|__dynamic_cast|_Unwind_' \
		"needs a C++ run-time library"
}

constructors() {
	"${READELF:-readelf}" -SW "$archive" > "$found"
	none_of '\.(init_array|fini_array|preinit_array|ctors|dtors|tbss|tdata)' "runs code outside of any call"
}

registers() {
	"${OBJDUMP:-objdump}" -d --no-show-raw-insn "$archive" > "$found"
	format=$(sed -n 's/.*file format //p' "$found" | sort -u)
	case $format in
	elf64-x86-64) pattern='%([xyz]?mm[0-9]+|st\b|k[0-7]\b)' ;;
	elf64-littleaarch64) pattern='\b[vqdshbzp][0-9]+\b' ;;
	*)
		echo "no pattern for the registers of $format"
		return 1
		;;
	esac
	# Instructions and operands only, without immediates, targets and notes.
	awk -F '\t' 'NF >= 2 {
		line = $2 "\t" $3
		sub(/[0-9a-f]+ <.*/, "", line)
		sub(/#.*|\/\/.*/, "", line)
		print line
	}' "$found" > "$found.code"
	mv "$found.code" "$found"
	none_of "$pattern" "uses floating-point or vector registers"
}

unique() {
	defined > "$found"
	none_of ' UNIQUE ' "unique in the process"
}

functions() {
	defined > "$found"
	missing=$(grep -vE '^(#|$)' "$functions" | while read -r name; do
		grep -qxF "$name FUNC GLOBAL DEFAULT" "$found" || echo "$name"
	done)
	if [ -n "$missing" ]; then
		echo "not a visible global function:" $missing
		return 1
	fi
	[ "$(grep -cvE '^(#|$)' "$functions")" -gt 0 ]
}

names() {
	defined | awk '$4 == "DEFAULT" { print $1 }' > "$found"
	none_of '^_Z' "visible outside, but no C name"
}

case $check in
undefined | runtime | constructors | registers | unique | functions | names) "$check" ;;
*)
	echo "no such check: $check" >&2
	exit 2
	;;
esac
