#!/usr/bin/env bash
# The Windows modules, tested under Wine: installs MinGW-w64, Wine and the
# GoogleTest sources, builds KzLib73.dll, KzLha73.dll, kzlha.exe and the
# test programs with the windows preset, runs them with ctest, then holds
# kzlha.exe to the Linux kzlha on the shared archives and on a
# create / add / update / delete sequence (tests/windows/parity.sh).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/build-windows.sh"  # installs MinGW-w64 and Wine too

# A Wine prefix of our own, one Wine server for the whole run (each start
# costs seconds), UTC on both sides so that DOS times read alike, and a
# UTF-8 locale so that Wine maps non-ASCII file names as Linux stores them.
export WINEPREFIX=${KZ_WINEPREFIX:-$HOME/.cache/kzlha-wine}
export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" TZ=UTC LC_ALL=C.UTF-8
mkdir -p "$WINEPREFIX"
wineserver -p 2>/dev/null || true  # already running for this prefix: use it
trap 'wineserver -k || true' EXIT
wine cmd /c exit >/dev/null 2>&1 || true  # creates the prefix on the first run


# The modules import only what every Windows has, and KzLha73.dll exports
# its 25 names and nothing else.
imports() { x86_64-w64-mingw32-objdump -p "$1" | awk '/DLL Name:/ {print $3}' | sort | tr '\n' ' '; }
check_imports() {
  local extra
  extra=$(imports "$1" | tr ' ' '\n' | grep -v -i -x -E 'KERNEL32.dll|msvcrt.dll|SHLWAPI.dll|SHELL32.dll|KzLib73.dll' || true)
  [[ -z $extra ]] || { echo "$1 imports $extra"; exit 1; }
  echo "$(basename "$1"): $(imports "$1")"
}
for f in KzLib73.dll KzLha73.dll kzlha.exe; do check_imports "$root/build/windows/$f"; done
exports=$(x86_64-w64-mingw32-objdump -p "$root/build/windows/KzLha73.dll" |
  sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' | grep -c -E '^\s*\[ *[0-9]+\]')
[[ $exports == 25 ]] || { echo "KzLha73.dll exports $exports names"; exit 1; }

ctest --test-dir "$root/build/windows" --output-on-failure

# The Linux program to compare with: the dev build's (or KZ_LINUX_BUILD's),
# brought up to date.
linux=${KZ_LINUX_BUILD:-$root/build/dev}
[[ -n ${KZ_LINUX_BUILD:-} ]] || cmake --preset dev -S "$root" >/dev/null
cmake --build "$linux" --target kzlha KzLha73 -j"$(nproc)"
bash "$root/tests/windows/parity.sh" "$linux/kzlha" "$root/build/windows/kzlha.exe" "$root/../shared/archives"
