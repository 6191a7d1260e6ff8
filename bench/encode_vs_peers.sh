#!/usr/bin/env bash
# The encoder against its peers on the benchmark corpus: archive sizes
# against jlha (a1o5/a1o6/a1o7), compression time against jlha and
# libdeflate-gzip -6 (hyperfine), and peak memory (/usr/bin/time -v).
#
# Usage: bench/encode_vs_peers.sh [KZLHA] [CORPUS_DIR]
#   KZLHA       the kzlha command line (default: build/bench/kzlha, built
#               here in Release if missing)
#   CORPUS_DIR  where the corpus is built (default: /tmp/kz-corpus)
# Environment: LEVELS="1 2 3 4" (kzlha levels to run; default "3"),
#              METHODS="5 6 7", RUNS=5.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
kzlha=$(realpath -m "${1:-$here/build/bench/kzlha}")
corpus=${2:-/tmp/kz-corpus}
levels=${LEVELS:-3}
methods=${METHODS:-5 6 7}
runs=${RUNS:-5}

for tool in hyperfine jlha libdeflate-gzip; do
  command -v "$tool" > /dev/null || { echo "missing: $tool" >&2; exit 2; }
done

if [ -z "${1:-}" ]; then  # the default program is brought up to date first
  cmake -S "$here" -B "$here/build/bench" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKZ_BUILD_TESTS=OFF > /dev/null
  cmake --build "$here/build/bench" --target kzlha KzLha73 > /dev/null
fi
if [ ! -s "$corpus/src.txt" ]; then
  bash /work/shared/bench/make-corpus.sh "$corpus" > /dev/null
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$corpus"
files=$(ls | tr "\n" " ")
total=$(cat $files | wc -c)

times() {  # wall and CPU (user + system) mean seconds from a hyperfine JSON export
  python3 -c 'import json,sys; r=json.load(open(sys.argv[1]))["results"][0]; print(r["mean"], r["user"] + r["system"])' "$1"
}
timed() {  # NAME COMMAND...: "wall cpu" mean seconds over $runs runs; outputs go to $work/out-NAME*
  local name=$1; shift
  hyperfine --style none --warmup 1 --runs "$runs" --prepare "rm -f $work/out-$name*" \
    --export-json "$work/$name.json" "$*" > /dev/null
  times "$work/$name.json"
}
peak_kib() {  # COMMAND...: peak resident set in KiB
  if [ -x /usr/bin/time ]; then
    /usr/bin/time -v "$@" 2>&1 > /dev/null | awk -F: '/Maximum resident/ {gsub(/ /, "", $2); print $2}'
  else
    echo "-"
  fi
}

echo "corpus: $corpus ($total bytes in $(echo $files | wc -w) files), $runs runs each"
echo "CPU = user + system; kzlha's wall time includes syncing the finished archive to disk"
read -r gzip_wall gzip_cpu < <(timed gzip "libdeflate-gzip -6 -c $files > $work/out-gzip.gz")
gzip_kib=$(peak_kib sh -c "libdeflate-gzip -6 -c $files > $work/out-gzip.gz")
ratio() { echo "$1 / $2" | bc -l; }
row='%-22s %12s %8.3f %8.3f %8.2fx %3s %8s %9s\n'
printf '%-22s %12s %8s %8s %9s %3s %8s %9s\n' "compressor" "bytes" "wall s" "CPU s" "CPU/gzip" "" "CPU/jlha" "peak KiB"
printf "$row" "libdeflate-gzip -6" "$(stat -c %s $work/out-gzip.gz)" "$gzip_wall" "$gzip_cpu" 1 "" "" "$gzip_kib"

for m in $methods; do
  read -r jlha_wall jlha_cpu < <(timed jlha$m "jlha a1o${m}q $work/out-jlha$m.lzh $files")
  jlha_bytes=$(stat -c %s "$work/out-jlha$m.lzh")
  jlha_kib=$(peak_kib jlha a1o${m}q "$work/mem-jlha$m.lzh" $files)
  printf "$row" "jlha a1o$m" "$jlha_bytes" "$jlha_wall" "$jlha_cpu" "$(ratio "$jlha_cpu" "$gzip_cpu")" "" "" "$jlha_kib"
  for level in $levels; do
    name=kz$m$level
    read -r kz_wall kz_cpu < <(timed $name "$kzlha cqo${m}l${level} $work/out-$name.lzh $files")
    kz_bytes=$(stat -c %s "$work/out-$name.lzh")
    kz_kib=$(peak_kib "$kzlha" cqo${m}l${level} "$work/mem-$name.lzh" $files)
    verdict=$([ "$kz_bytes" -le "$jlha_bytes" ] && echo "<=" || echo ">")
    printf "$row" "kzlha -lh$m- level $level" "$kz_bytes" "$kz_wall" "$kz_cpu" \
      "$(ratio "$kz_cpu" "$gzip_cpu")" "$verdict" "$(printf '%.3fx' "$(ratio "$kz_cpu" "$jlha_cpu")")" "$kz_kib"
  done
done
