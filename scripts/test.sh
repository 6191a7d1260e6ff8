#!/usr/bin/env bash
# The whole test suite: unit, end-to-end and interoperability tests in the
# normal build. KZ_TEST_PRESET=asan runs them under the sanitizers.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
preset=${KZ_TEST_PRESET:-dev}
bash "$root/scripts/install-deps.sh"
cmake --preset "$preset" -S "$root" >/dev/null
cmake --build "$root/build/$preset" -j"$(nproc)"
# A test that hangs (a decoder looping on a broken table, say) fails after
# ten minutes instead of holding the run; the slowest take seconds.
ctest --test-dir "$root/build/$preset" --output-on-failure --timeout 600 -j"$(nproc)"
