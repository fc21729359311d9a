#!/usr/bin/env bash
# demo.sh: from a fresh machine to registers on screen, on the example television.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/setup.sh
cmake -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$(nproc)" --target vexil_tool | tail -n 1

mkdir -p out
show() {
  printf '\n$ %s\n' "$*"
  "$@"
}
PATH=$PWD/build:$PATH
show vexil build examples/tv -o out/tv.pim
show vexil info out/tv.pim
show vexil load out/tv.pim 'Dimming_Level#High' --product examples/tv
show vexil build examples/customer -o out/customer.pim
show vexil merge out/tv.pim out/customer.pim -o out/merged.pim
show vexil load out/merged.pim 'Gamma_Peak#Shop' --product examples/customer
