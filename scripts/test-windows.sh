#!/usr/bin/env bash
# The Windows modules, tested under Wine: installs MinGW-w64, Wine and the
# GoogleTest sources, builds KzLib73.dll, KzLha73.dll, kzlha.exe and the
# test programs with the windows preset, runs them with ctest, then holds
# kzlha.exe to the Linux kzlha on the shared archives and on a
# create / add / update / delete sequence (tests/windows/parity.sh).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
KZ_WITH_WINDOWS=1 bash "$root/scripts/install-deps.sh"

# A Wine prefix of our own, one Wine server for the whole run (each start
# costs seconds), UTC on both sides so that DOS times read alike, and a
# UTF-8 locale so that Wine maps non-ASCII file names as Linux stores them.
export WINEPREFIX=${KZ_WINEPREFIX:-$HOME/.cache/kzlha-wine}
export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" TZ=UTC LC_ALL=C.UTF-8
mkdir -p "$WINEPREFIX"
wineserver -p
trap 'wineserver -k || true' EXIT
wine cmd /c exit >/dev/null 2>&1 || true  # creates the prefix on the first run

cmake --preset windows -S "$root" >/dev/null
cmake --build "$root/build/windows" -j"$(nproc)"
ctest --test-dir "$root/build/windows" --output-on-failure

# The Linux program to compare with: the dev build's (or KZ_LINUX_BUILD's),
# brought up to date.
linux=${KZ_LINUX_BUILD:-$root/build/dev}
[[ -n ${KZ_LINUX_BUILD:-} ]] || cmake --preset dev -S "$root" >/dev/null
cmake --build "$linux" --target kzlha KzLha73 -j"$(nproc)"
bash "$root/tests/windows/parity.sh" "$linux/kzlha" "$root/build/windows/kzlha.exe" "$root/../shared/archives"
