#!/usr/bin/env bash
# Runs every fuzz target for SECONDS each (default 600), one after another on
# one core, with the seeds kept in fuzz/seeds/<target>/ plus the real
# archives; new inputs go to build/fuzz/corpus-<target>/, crashes, leaks and
# timeouts to build/fuzz/artifacts/. Ends with one table: executions, final
# coverage (cov: and ft: of the DONE line), corpus size and findings per
# target. Exit status 1 if any target found something.
# KZ_FUZZ_TARGETS="fuzz_decode fuzz_list" runs only the targets named.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-600}
bash "$root/scripts/install-deps.sh"
cmake --preset fuzz -S "$root" >/dev/null
cmake --build "$root/build/fuzz" -j"${KZ_FUZZ_BUILD_JOBS:-$(nproc)}"
artifacts="$root/build/fuzz/artifacts"
mkdir -p "$artifacts"
shopt -s nullglob
rows=()
failed=0
for bin in "$root"/build/fuzz/fuzz/fuzz_*; do
  [[ -x "$bin" && -f "$bin" ]] || continue
  name=$(basename "$bin")
  [[ -z "${KZ_FUZZ_TARGETS:-}" || " $KZ_FUZZ_TARGETS " == *" $name "* ]] || continue
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
    -max_total_time="$seconds" -max_len=262144 -rss_limit_mb=2048 -timeout=25 \
    -print_final_stats=1 -artifact_prefix="$artifacts/$name-" "${dict[@]}") >"$log" 2>&1 || status=$?
  grep -E 'stat::number_of_executed_units|DONE|ERROR|SUMMARY' "$log" | tail -4 || true
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  done_line=$(grep -E '#[0-9]+[[:space:]]+DONE' "$log" | tail -1 || true)
  # Without a DONE line (a crash), the last status line has the coverage.
  [[ -n "$done_line" ]] || done_line=$(grep -E '#[0-9]+[[:space:]]+(NEW|REDUCE|pulse|INITED)' "$log" | tail -1 || true)
  cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$done_line")
  ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$done_line")
  files=$(find "$corpus" -type f | wc -l)
  kib=$(du -sk "$corpus" | cut -f1)
  finding=none
  if ((status != 0)); then
    finding=$(grep -m1 -oE 'ERROR: (AddressSanitizer|LeakSanitizer|UndefinedBehaviorSanitizer|libFuzzer): [a-z-]+' "$log" ||
      grep -m1 -oE 'runtime error|deadly signal|timeout' "$log" || echo "exit $status")
    finding="${finding// /_}"
    echo "$name failed (exit $status); see $log" >&2
    tail -40 "$log" >&2
    failed=1
  fi
  rows+=("$(printf '%-16s %12s %7s %7s %8s %9s  %s' "$name" "${execs:-?}" "${cov:-?}" "${ft:-?}" "$files" "$kib" "$finding")")
done
echo
echo "== summary ($seconds s per target, $(date -u '+%Y-%m-%d %H:%M UTC'))"
printf '%-16s %12s %7s %7s %8s %9s  %s\n' target executions cov ft corpus corpusKiB findings
printf '%s\n' "${rows[@]}"
exit $failed
