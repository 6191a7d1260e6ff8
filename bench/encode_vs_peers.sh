#!/usr/bin/env bash
# The encoder against its peers on the benchmark corpus: archive sizes
# against jlha (a1o5/a1o6/a1o7), compression time against jlha and
# libdeflate-gzip -6, and peak memory (/usr/bin/time -v). The compressors
# take turns, run after run (bench/interleave.c), so that a busy spell of
# the machine falls on all of them alike; times are medians.
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

for tool in cc jlha libdeflate-gzip; do
  command -v "$tool" > /dev/null || { echo "missing: $tool" >&2; exit 2; }
done

if [ -z "${1:-}" ]; then  # the default program is brought up to date first
  cmake -S "$here" -B "$here/build/bench" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKZ_BUILD_TESTS=OFF > /dev/null
  cmake --build "$here/build/bench" --target kzlha KzLha73 > /dev/null
fi
if [ ! -s "$corpus/src.txt" ]; then
  bash "$here/../shared/bench/make-corpus.sh" "$corpus" > /dev/null
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cc -O2 -o "$work/interleave" "$here/bench/interleave.c"
cd "$corpus"
files=$(ls | tr "\n" " ")
total=$(cat $files | wc -c)

# Every compressor writes $work/out-NAME*, removed before each run.
names=()
commands=()
add() {  # NAME COMMAND
  names+=("$1")
  commands+=(-p "rm -f $work/out-$1*" sh -c "$2" --)
}
add gzip "libdeflate-gzip -6 -c $files > $work/out-gzip.gz"
for m in $methods; do
  add "jlha$m" "jlha a1o${m}q $work/out-jlha$m.lzh $files"
  for level in $levels; do
    add "kz$m$level" "$kzlha cqo${m}l${level} $work/out-kz$m$level.lzh $files"
  done
done
unset 'commands[${#commands[@]}-1]'
"$work/interleave" "$runs" 1 "${commands[@]}" > "$work/times.txt"
declare -A wall cpu
i=0
while read -r w c _; do
  wall[${names[$i]}]=$(echo "$w / 1000" | bc -l)
  cpu[${names[$i]}]=$(echo "$c / 1000" | bc -l)
  i=$((i + 1))
done < "$work/times.txt"

peak_kib() {  # COMMAND...: peak resident set in KiB
  if [ -x /usr/bin/time ]; then
    /usr/bin/time -v "$@" 2>&1 > /dev/null | awk -F: '/Maximum resident/ {gsub(/ /, "", $2); print $2}'
  else
    echo "-"
  fi
}

echo "corpus: $corpus ($total bytes in $(echo $files | wc -w) files), medians of $runs interleaved runs"
echo "CPU = user + system; kzlha's wall time includes syncing the finished archive to disk"
gzip_cpu=${cpu[gzip]}
gzip_kib=$(peak_kib sh -c "libdeflate-gzip -6 -c $files > $work/mem-gzip.gz")
ratio() { echo "$1 / $2" | bc -l; }
row='%-22s %12s %8.3f %8.3f %8.2fx %3s %8s %9s\n'
printf '%-22s %12s %8s %8s %9s %3s %8s %9s\n' "compressor" "bytes" "wall s" "CPU s" "CPU/gzip" "" "CPU/jlha" "peak KiB"
printf "$row" "libdeflate-gzip -6" "$(stat -c %s $work/out-gzip.gz)" "${wall[gzip]}" "$gzip_cpu" 1 "" "" "$gzip_kib"

for m in $methods; do
  jlha_cpu=${cpu[jlha$m]}
  jlha_bytes=$(stat -c %s "$work/out-jlha$m.lzh")
  jlha_kib=$(peak_kib jlha a1o${m}q "$work/mem-jlha$m.lzh" $files)
  printf "$row" "jlha a1o$m" "$jlha_bytes" "${wall[jlha$m]}" "$jlha_cpu" "$(ratio "$jlha_cpu" "$gzip_cpu")" "" "" "$jlha_kib"
  for level in $levels; do
    name=kz$m$level
    kz_bytes=$(stat -c %s "$work/out-$name.lzh")
    kz_kib=$(peak_kib "$kzlha" cqo${m}l${level} "$work/mem-$name.lzh" $files)
    verdict=$([ "$kz_bytes" -le "$jlha_bytes" ] && echo "<=" || echo ">")
    printf "$row" "kzlha -lh$m- level $level" "$kz_bytes" "${wall[$name]}" "${cpu[$name]}" \
      "$(ratio "${cpu[$name]}" "$gzip_cpu")" "$verdict" "$(printf '%.3fx' "$(ratio "${cpu[$name]}" "$jlha_cpu")")" "$kz_kib"
  done
done
