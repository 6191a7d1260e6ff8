#!/usr/bin/env bash
# Decoding speed of `kzlha t` beside `bsdtar -xOf` and `lhasa t`, and of
# `kzlha x` beside `lhasa x` into a fresh directory, printed as ratios of
# median times (peer / kzlha; above 1 means kzlha is faster); then the
# peak memory of `kzlha t` (GNU time). The commands take turns, run after
# run (bench/interleave.c), so that a busy spell of the machine falls on
# all of them alike.
#
#   bench/decode_vs_peers.sh [KZLHA]
#
# KZLHA defaults to build/release/kzlha. The -lh5/6/7- archives are made
# once with jlha from the benchmark corpus (shared/bench/make-corpus.sh)
# under $KZ_BENCH_WORK (default: a temporary directory); the -lh1- ones are
# the shared archives. RUNS sets the rounds for the corpus archives (default
# 15); the short -lh1- runs take ten times as many.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")
shared=$(dirname "$root")/shared
kzlha=$(realpath "${1:-$root/build/release/kzlha}")
runs=${RUNS:-15}
work=${KZ_BENCH_WORK:-$(mktemp -d)}
mkdir -p "$work"

for tool in cc jlha bsdtar lhasa /usr/bin/time; do
  command -v "$tool" >/dev/null || { echo "decode_vs_peers: $tool is needed" >&2; exit 2; }
done
[ -x "$kzlha" ] || { echo "decode_vs_peers: no kzlha at $kzlha" >&2; exit 2; }

interleave=$work/interleave
cc -O2 -o "$interleave" "$here/interleave.c"

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

# Prints LABEL, kzlha's median, and each peer's median over kzlha's, from
# interleave's lines ("wall_ms cpu_ms command...", kzlha's first).
ratios() {
  awk -v label="$1" -v what="$2" 'NR == 1 { ours = $1; printf "%-12s kzlha %s %8.2f ms", label, what, ours; next }
    { printf "   %s: %5.2fx", $3 == "sh" ? "lhasa x" : $3, $1 / ours } END { print "" }'
}

# `kzlha t` against peers that take the archive as their last argument.
compare() {
  local archive=$1 label=$2 rounds=$3
  shift 3
  local cmds=("$kzlha" t "$archive")
  for peer in "$@"; do
    # shellcheck disable=SC2206
    cmds+=(-- $peer "$archive")
  done
  "$interleave" "$rounds" 2 "${cmds[@]}" | ratios "$label" t
}

# Extraction into a fresh directory each run: kzlha x -w=DIR against
# lhasa x run inside DIR, both through a shell.
compare_extract() {
  local archive=$1 label=$2 rounds=$3 out=$work/x-out
  local fresh="rm -rf $out && mkdir $out"
  "$interleave" "$rounds" 1 -p "$fresh" sh -c "$kzlha x -q -w=$out $archive" \
    -- -p "$fresh" sh -c "cd $out && lhasa x $archive" | ratios "$label" x
  rm -rf "$out"
}

peak_kib() {  # peak resident set of kzlha t ARCHIVE, in KiB
  /usr/bin/time -f %M "$kzlha" t -q "$1" 2>&1 >/dev/null | tail -1
}

echo "median times, peer / kzlha; $runs rounds (-lh1-: $((runs * 10)))"
for m in 5 6 7; do
  compare "$work/corpus-lh$m.lzh" "lh$m" "$runs" "bsdtar -xOf" "lhasa t"
done
compare "$shared/archives/lengths/lh1-2m.lzh" "lh1-2m" $((runs * 10)) "lhasa t"
compare "$shared/archives/lharc113/long.lzh" "lh1-long" $((runs * 10)) "lhasa t"

echo "extraction into a fresh directory"
for m in 5 6 7; do
  compare_extract "$work/corpus-lh$m.lzh" "lh$m" "$runs"
done
compare_extract "$shared/archives/lengths/lh1-2m.lzh" "lh1-2m" $((runs * 10))

echo "peak memory of kzlha t (KiB; target 5120)"
for m in 5 6 7; do
  echo "lh$m         $(peak_kib "$work/corpus-lh$m.lzh")"
done
echo "lh1-2m      $(peak_kib "$shared/archives/lengths/lh1-2m.lzh")"
