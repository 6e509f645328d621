#!/usr/bin/env bash
# Installs what is missing, builds the program and takes the sample job through it: convert, verify, describe, extract.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh build
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DVNDLP_BUILD_TESTS=OFF >/dev/null
cmake --build build/demo
vndlp=build/demo/tools/vndlp
out=out/demo
mkdir -p "$out"

step() { printf '\n$ %s\n' "$*"; "$@"; }
step "$vndlp" convert examples/lattice_tower.sl1 "$out/lattice_tower.vndlp" --force
step "$vndlp" verify "$out/lattice_tower.vndlp"
step "$vndlp" info "$out/lattice_tower.vndlp"
step "$vndlp" extract "$out/lattice_tower.vndlp" --layers 0,50,100 --previews -o "$out/pictures" --force

cat <<TEXT

Made from examples/lattice_tower.sl1, a slicer's job of 111 layers:
  $out/lattice_tower.vndlp   the printer's slice file, sealed and verified
  $out/pictures/             layers 0, 50 and 100 and the three previews as PNG
The program: $vndlp --help
TEXT
