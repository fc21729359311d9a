#!/usr/bin/env bash
# check-tree.sh: who may include whom. Arrows point one way; library sources see no system header.
#   include <- core <- extmem <- pim <- rm; verify reads the layouts of all three
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
status=0

allow() { # folder, then the include prefixes that it may use
  local folder=$1 file included ok prefix
  shift
  while IFS=: read -r file included; do
    ok=
    for prefix in "$@"; do
      case $included in "$prefix"*) ok=1 ;; esac
    done
    if [ -z "$ok" ]; then
      echo "$file must not include $included"
      status=1
    fi
  done < <(grep -rHoE '^ *# *include +[<"][^>"]+' "$folder" --include='*.h' --include='*.cpp' |
    sed -E 's/: *# *include +[<"]/:/')
}

allow include vexil/ linux/types.h stdbool.h stddef.h
allow core core/ vexil/ platform/platform.h cJSON.h third_party/cjson/number_model.h
allow extmem extmem/ core/ vexil/ platform/platform.h
allow presetdb presetdb/ core/ vexil/
allow module module/ core/ vexil/
allow rm rm/ pim/pim.h extmem/extmem.h extmem/children.h extmem/tree.h extmem/reader.h core/ vexil/
allow verify verify/ pim/layout.h rm/layout.h extmem/layout.h extmem/reader.h core/ vexil/
allow pim pim/ extmem/extmem.h extmem/children.h extmem/tree.h core/ vexil/

grep -n 'platform/platform.h' pim/*.h pim/*.cpp 2>/dev/null && status=1
if [ $status -eq 0 ]; then echo "check-tree: includes point the right way"; fi
exit $status
