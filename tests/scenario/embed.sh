#!/bin/sh
# SPDX-License-Identifier: MIT
# embed.sh OUT EXAMPLES     writes OUT/document_bytes.S and OUT/document_table.c: the example products, in the
#                           order of their manifests, and the television's register table.
# embed.sh --list EXAMPLES  names every file that these two are made from.
#
# Files that would not change are left alone. Manifests hold plain strings only: no escapes.
set -eu
LC_ALL=C
export LC_ALL
[ $# -eq 2 ] || { echo "usage: embed.sh OUT|--list EXAMPLES" >&2; exit 2; }
out=$1
examples=$(cd "$2" && pwd)
products="tv customer"

# A manifest as lines: "kind value", or "files name=path" for a file with a name of its own.
manifest() { # product
  tr '\n\t' '  ' <"$examples/$1/product.json" | awk '
    {
      depth = 0; key = ""; name = ""; path = ""; wanted = 1; member = ""
      for (i = 1; i <= length($0); i++) {
        c = substr($0, i, 1)
        if (c == "\"") {
          text = ""
          for (i++; (c = substr($0, i, 1)) != "\""; i++) {
            if (c == "" || c == "\\") exit 1
            text = text c
          }
          if (depth == 1 && wanted) { key = text; wanted = 0 }
          else if (depth == 1) print key " " text
          else if (depth == 2) print key " " text
          else if (wanted) { member = text; wanted = 0 }
          else if (member == "name") name = text
          else if (member == "path") path = text
        } else if (c == "{" || c == "[") {
          depth++
          if (c == "{") wanted = 1
        } else if (c == "}" || c == "]") {
          if (depth == 3) { print key " " name "=" path; name = ""; path = "" }
          depth--
        } else if (c == "," && (depth == 1 || depth == 3)) wanted = 1
      }
      if (depth != 0) exit 1
    }'
}

# The entries of one product: "kind<TAB>name<TAB>path", the path empty for handlers.
entries() { # product
  manifest "$1" >"$scratch/manifest"
  # What manifest() gives is in the manifest's order; products are built in this one.
  for kind in hardware software customer handlers files functionGroups sources rules presetDatabase; do
    sed -n "s/^$kind //p" "$scratch/manifest" | while IFS= read -r value; do
      case $kind in
        handlers) printf '%s\t%s\t\n' HANDLER "$value" ;;
        files)
          case $value in
            *=*) printf '%s\t%s\t%s\n' FILE "${value%%=*}" "$examples/$1/${value#*=}" ;;
            *)
              if [ -d "$examples/$1/$value" ]; then
                for file in "$examples/$1/$value"/*; do printf '%s\t%s\t%s\n' FILE "${file##*/}" "$file"; done
              else
                printf '%s\t%s\t%s\n' FILE "${value##*/}" "$examples/$1/$value"
              fi ;;
          esac ;;
        hardware) printf '%s\t%s\t%s\n' HARDWARE "$value" "$examples/$1/$value" ;;
        software) printf '%s\t%s\t%s\n' SOFTWARE "$value" "$examples/$1/$value" ;;
        customer) printf '%s\t%s\t%s\n' CUSTOMER "$value" "$examples/$1/$value" ;;
        functionGroups) printf '%s\t%s\t%s\n' GROUPS "$value" "$examples/$1/$value" ;;
        sources) printf '%s\t%s\t%s\n' SOURCES "$value" "$examples/$1/$value" ;;
        rules) printf '%s\t%s\t%s\n' RULES "$value" "$examples/$1/$value" ;;
        presetDatabase) printf '%s\t%s\t%s\n' PRESETDB "$value" "$examples/$1/$value" ;;
      esac
    done
  done
}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for product in $products; do
  entries "$product" >"$scratch/product" # no pipe: a manifest that cannot be read ends it all
  sed "s/^/$product	/" "$scratch/product"
done >"$scratch/entries"
reginfo=$examples/tv/$(manifest tv | sed -n 's/^registerInfo //p')

if [ "$out" = --list ]; then
  {
    for product in $products; do echo "$examples/$product/product.json"; done
    echo "$reginfo"
    cut -f 4 "$scratch/entries" | grep . | sort -u
  }
  exit 0
fi

awk -F '\t' '
  BEGIN { print "/* Written by embed.sh. */\n\t.section .rodata,\"a\"" }
  $4 != "" {
    print "\t.balign 8\n\t.globl vexil_document_" NR "\nvexil_document_" NR ":"
    print "\t.incbin \"" $4 "\"\n\t.globl vexil_document_" NR "_end\nvexil_document_" NR "_end:\n\t.byte 0"
  }
  END { print "\t.section .note.GNU-stack,\"\",%progbits" }
' "$scratch/entries" >"$scratch/document_bytes.S"

{
  printf '/* Written by embed.sh. */\n#include "documents.h"\n\n'
  awk -F '\t' '$4 != "" { print "extern const char vexil_document_" NR "[], vexil_document_" NR "_end[];" }' "$scratch/entries"
  printf '\nconst struct document vexil_documents[] = {\n'
  awk -F '\t' '{
    bytes = $4 == "" ? "NULL, NULL" : "vexil_document_" NR ", vexil_document_" NR "_end"
    print "\t{ \"" $1 "\", DOCUMENT_" $2 ", \"" $3 "\", " bytes " },"
  }' "$scratch/entries"
  printf '};\nconst unsigned int vexil_documents_count = sizeof vexil_documents / sizeof vexil_documents[0];\n'
  printf '\nconst ST_PQ_REG_INFO vexil_register_table[] = {\n'
  # One field a line, whatever the layout of the file was; "null" is a position without a register.
  tr -d ' \n\t' <"$reginfo" | sed 's/^\[//; s/\]$//; s/},/}\n/g; s/null,/null\n/g' | awk '
    function member(name, at) {
      at = index($0, "\"" name "\":")
      if (!at) exit 1
      at = substr($0, at + length(name) + 3)
      sub(/[,}].*/, "", at)
      gsub(/"/, "", at)
      return at
    }
    /^null/ { print "\t{ (EN_PQ_TIME_DOMAIN)0, 0, 0, 0 },"; next }
    /^{/ { print "\t{ (EN_PQ_TIME_DOMAIN)" member("domain") ", " member("addr") ", " member("lsb") "u << 8 | " member("width") "u << 16, 1 }," }'
  printf '};\nconst unsigned int vexil_register_table_count =\n\tsizeof vexil_register_table / sizeof vexil_register_table[0];\n'
} >"$scratch/document_table.c"

mkdir -p "$out"
for file in document_bytes.S document_table.c; do
  cmp -s "$scratch/$file" "$out/$file" || cp "$scratch/$file" "$out/$file"
done
