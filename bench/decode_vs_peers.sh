#!/usr/bin/env bash
# Decoding speed of `kzlha t` beside `bsdtar -xOf` and `lhasa t`, and of
# `kzlha x` beside `lhasa x` into a fresh directory, measured with
# hyperfine, printed as ratios (peer time / kzlha time; above 1 means kzlha
# is faster); then the peak memory of `kzlha t` (GNU time).
#
#   bench/decode_vs_peers.sh [KZLHA]
#
# KZLHA defaults to build/release/kzlha. The -lh5/6/7- archives are made
# once with jlha from the benchmark corpus (shared/bench/make-corpus.sh)
# under $KZ_BENCH_WORK (default: a temporary directory); the -lh1- ones are
# the shared archives. Set RUNS to change hyperfine's run count.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")
shared=$(dirname "$root")/shared
kzlha=$(realpath "${1:-$root/build/release/kzlha}")
runs=${RUNS:-10}
work=${KZ_BENCH_WORK:-$(mktemp -d)}
mkdir -p "$work"

for tool in hyperfine jlha bsdtar lhasa python3 /usr/bin/time; do
  command -v "$tool" >/dev/null || { echo "decode_vs_peers: $tool is needed" >&2; exit 2; }
done
[ -x "$kzlha" ] || { echo "decode_vs_peers: no kzlha at $kzlha" >&2; exit 2; }

corpus=$work/corpus
if [ ! -f "$corpus/src.txt" ]; then
  bash "$shared/bench/make-corpus.sh" "$corpus" >/dev/null
fi
files=$(cd "$corpus" && ls)
for m in 5 6 7; do
  if [ ! -f "$work/corpus-lh$m.lzh" ]; then
    # shellcheck disable=SC2086
    (cd "$corpus" && jlha "a1o$m" "$work/corpus-lh$m.lzh" $files >/dev/null 2>&1)
  fi
done

# One archive against its peers; prints the ratios of mean and median times.
compare() {
  local archive=$1 label=$2
  shift 2
  local json=$work/$label.json
  local cmds=("$kzlha t $archive")
  for peer in "$@"; do cmds+=("$peer $archive"); done
  hyperfine -N -w 2 -r "$runs" --export-json "$json" "${cmds[@]}" >/dev/null
  python3 - "$json" "$label" <<'EOF'
import json, statistics, sys
results = json.load(open(sys.argv[1]))["results"]
ours = results[0]
mean, median = ours["mean"], statistics.median(ours["times"])
line = f"{sys.argv[2]:<12} kzlha {mean * 1000:7.1f} ms"
for peer in results[1:]:
    name = peer["command"].split()[0]
    line += f"   {name}: {peer['mean'] / mean:5.2f}x (median {statistics.median(peer['times']) / median:5.2f}x)"
print(line)
EOF
}

# Extraction into a fresh directory each run: kzlha x -w=DIR against
# lhasa x run inside DIR.
compare_extract() {
  local archive=$1 label=$2 out=$work/x-out
  local json=$work/x-$label.json
  hyperfine -w 1 -r "$runs" --prepare "rm -rf $out && mkdir $out" --export-json "$json" \
    "$kzlha x -q -w=$out $archive" "cd $out && lhasa x $archive" >/dev/null
  python3 - "$json" "$label" <<'EOF'
import json, statistics, sys
ours, peer = json.load(open(sys.argv[1]))["results"]
print(f"{sys.argv[2]:<12} kzlha x {ours['mean'] * 1000:7.1f} ms   lhasa x: {peer['mean'] / ours['mean']:5.2f}x"
      f" (median {statistics.median(peer['times']) / statistics.median(ours['times']):5.2f}x)")
EOF
  rm -rf "$out"
}

peak_kib() {  # peak resident set of kzlha t ARCHIVE, in KiB
  /usr/bin/time -f %M "$kzlha" t -q "$1" 2>&1 >/dev/null | tail -1
}

echo "peer time / kzlha time, $runs runs each"
for m in 5 6 7; do
  compare "$work/corpus-lh$m.lzh" "lh$m" "bsdtar -xOf" "lhasa t"
done
compare "$shared/archives/lengths/lh1-2m.lzh" "lh1-2m" "lhasa t"
compare "$shared/archives/lharc113/long.lzh" "lh1-long" "lhasa t"

echo "extraction into a fresh directory"
for m in 5 6 7; do
  compare_extract "$work/corpus-lh$m.lzh" "lh$m"
done
compare_extract "$shared/archives/lengths/lh1-2m.lzh" "lh1-2m"

echo "peak memory of kzlha t (KiB; target 5120)"
for m in 5 6 7; do
  echo "lh$m         $(peak_kib "$work/corpus-lh$m.lzh")"
done
echo "lh1-2m      $(peak_kib "$shared/archives/lengths/lh1-2m.lzh")"
