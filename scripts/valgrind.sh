#!/usr/bin/env bash
# Runs the GoogleTest programs under memcheck (opt-in, not in CI: slow).
# kzlha, when a test spawns it, runs under memcheck too; the peer tools the
# tests use as oracles (lhasa, lha, 7zz, bsdtar) and system commands do not.
#
#   bash scripts/valgrind.sh [program...]      default: every test_* program
#   GTEST_FILTER='Suite.*' bash scripts/valgrind.sh test_decode
#   KZ_VALGRIND_JOBS=1 (default) builds and runs on one core.
#
# Exit status: 0 if every program passed with no memcheck error and no
# definite leak, 1 otherwise; per-program logs in build/valgrind/memcheck/.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build/valgrind"
jobs=${KZ_VALGRIND_JOBS:-1}
command -v valgrind >/dev/null || { echo "valgrind is not installed" >&2; exit 2; }
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKZ_BUILD_TESTS=ON >/dev/null || exit 2
programs=("$@")
# Named programs: build only those (and the modules and kzlha they load).
targets=()
((${#programs[@]} == 0)) || targets=(--target "${programs[@]}" kzlha KzLha73)
cmake --build "$build" -j"$jobs" "${targets[@]}" || exit 2

if ((${#programs[@]} == 0)); then
  for p in "$build"/tests/test_*; do [[ -x "$p" && -f "$p" ]] && programs+=("$(basename "$p")"); done
fi
logs="$build/memcheck"
mkdir -p "$logs"
# The modules carry their own C++ runtime, whose operator new memcheck does
# not replace: a test that frees what a module allocated looks like a
# mismatched free, so those are not shown (the ASan build, with one shared
# runtime, still checks new/delete pairs). Children are traced so that kzlha
# runs under memcheck; anything else a
# test starts is skipped (its own errors are not ours to count).
skip='/bin/*,/usr/bin/*,/usr/sbin/*,*lhasa,*/lha,*jlha,*7zz,*bsdtar,*sh'
failed=0
printf '%-16s %6s %8s %8s %8s %s\n' program exit errors definite seconds log
for name in "${programs[@]}"; do
  prog="$build/tests/$name"
  log="$logs/$name.%p.log"
  rm -f "$logs/$name".*.log
  start=$(date +%s)
  (cd "$build/tests" && valgrind --tool=memcheck --error-exitcode=99 --leak-check=full \
    --errors-for-leak-kinds=definite --show-leak-kinds=definite --num-callers=30 \
    --suppressions="$root/scripts/valgrind.supp" --show-mismatched-frees=no \
    --trace-children=yes --trace-children-skip="$skip" --child-silent-after-fork=yes \
    --log-file="$log" "$prog" --gtest_brief=1) >"$logs/$name.out" 2>&1
  status=$?
  seconds=$(($(date +%s) - start))
  # One log per traced process; sum their error and definite-leak counts.
  errors=$(cat "$logs/$name".*.log 2>/dev/null | sed -n 's/.*ERROR SUMMARY: \([0-9]*\) errors.*/\1/p' | awk '{s+=$1} END {print s+0}')
  definite=$(cat "$logs/$name".*.log 2>/dev/null | sed -n 's/.*definitely lost: \([0-9,]*\) bytes.*/\1/p' | tr -d , | awk '{s+=$1} END {print s+0}')
  processes=$(ls "$logs/$name".*.log 2>/dev/null | wc -l)
  printf '%-16s %6s %8s %8s %8s %s (%s processes)\n' "$name" "$status" "$errors" "$definite" "$seconds" "$logs/$name.*.log" "$processes"
  ((status == 0 && errors == 0 && definite == 0)) || failed=1
done
exit $failed
