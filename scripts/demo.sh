#!/usr/bin/env bash
# demo.sh: from a fresh machine to registers on screen, on the example television.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/setup.sh
cmake -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$(nproc)" --target vexil_tool | tail -n 1

mkdir -p out
show() {
  # As it can be typed again; most words need no quotes.
  printf '\n$'
  for word in "$@"; do
    [[ $word =~ [^A-Za-z0-9._/=:-] ]] && word="'$word'"
    printf ' %s' "$word"
  done
  printf '\n'
  "$@"
}
PATH=$PWD/build:$PATH
show vexil build examples/tv -o out/tv.pim
show vexil info out/tv.pim
show vexil load out/tv.pim 'Dimming_Level#High' --product examples/tv
show vexil build examples/customer -o out/customer.pim
show vexil merge out/tv.pim out/customer.pim -o out/merged.pim
show vexil load out/merged.pim 'Gamma_Peak#Shop' --product examples/customer

# An HDR10 film from a player, in a dark room.
film="Input:HDMI1;Timing:2160p60;ColorFormat:Yuv422_12;Colorimetry:Bt2020;Range:Limited;\
HdrType:Hdr10;Signal:Good;Genre:Film;ContentHint:Cinema;Cadence:Film32;StillArea:Letterbox;\
PictureMode:Movie;UserSharpness:Level25;UserContrast:High;UserNoise:Auto;UserMotion:Cinema;\
UserColorTemp:Warm2;UserDimming:High;RoomMode:Auto;OsdPlane:Subtitle;Site:Home;Luma:812;\
AmbientLux:12;NoiseLevel:9;PanelTemp:382;FrameRate:5994;PeakNits:1000;AverageNits:400;\
FaceArea:180"
show vexil run out/tv.pim out/tv.rule --rule Picture --set "$film" --product examples/tv --brief
show vexil explain out/tv.pim out/tv.rule --rule DynContrast --set "$film" --product examples/tv
