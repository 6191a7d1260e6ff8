#!/usr/bin/env bash
# The main job on a fresh machine: install, build the release modules and
# the command line, then list and test a real archive made by LHA 2.13.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
cmake --preset release -S "$root" >/dev/null
cmake --build "$root/build/release" -j"$(nproc)" --target kzlha KzLha73
kz="$root/build/release/kzlha"
"$kz" --version
sample="$root/../shared/archives/lha_unix114i/h1_lh6.lzh"
[[ -f "$sample" ]] || sample=$(ls "$root"/../shared/archives/*/*.lzh | head -1)
"$kz" v "$sample"
"$kz" t "$sample"
