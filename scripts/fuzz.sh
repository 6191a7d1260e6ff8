#!/usr/bin/env bash
# Runs every fuzz target for SECONDS each (default 600) with the seeds kept
# in fuzz/seeds/<target>/ plus the real archives; new inputs go to
# build/fuzz/corpus-<target>/. Prints executions and coverage per target.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-600}
bash "$root/scripts/install-deps.sh"
cmake --preset fuzz -S "$root" >/dev/null
cmake --build "$root/build/fuzz" -j"$(nproc)"
shopt -s nullglob
for bin in "$root"/build/fuzz/fuzz/fuzz_*; do
  [[ -x "$bin" && -f "$bin" ]] || continue
  name=$(basename "$bin")
  corpus="$root/build/fuzz/corpus-$name"
  mkdir -p "$corpus"
  seeds=("$root/fuzz/seeds/$name")
  [[ -d "${seeds[0]}" ]] || seeds=()
  dict=()
  [[ -f "$root/fuzz/$name.dict" ]] && dict=(-dict="$root/fuzz/$name.dict")
  echo "== $name for ${seconds}s"
  log="$root/build/fuzz/$name.log"
  status=0
  (cd "$root/build/fuzz" && "$bin" "$corpus" "${seeds[@]}" "$root/../shared/archives" \
    -max_total_time="$seconds" -max_len=262144 -rss_limit_mb=2048 -print_final_stats=1 \
    "${dict[@]}") >"$log" 2>&1 || status=$?
  grep -E 'stat::number_of_executed_units|DONE|ERROR|SUMMARY' "$log" | tail -4 || true
  if ((status != 0)); then
    echo "$name failed (exit $status); see $log" >&2
    tail -40 "$log" >&2
    exit 1
  fi
done
