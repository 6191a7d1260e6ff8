#!/usr/bin/env bash
# The Windows modules and program (KzLib73.dll, KzLha73.dll, kzlha.exe) and
# their test programs, cross-built with MinGW-w64 into build/windows.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
KZ_WITH_WINDOWS=1 bash "$root/scripts/install-deps.sh"
cmake --preset windows -S "$root" >/dev/null
cmake --build "$root/build/windows" -j"$(nproc)"
