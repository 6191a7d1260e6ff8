#!/usr/bin/env bash
# Installs what building and testing need, from Debian's packages only.
# Packages already present are left alone, so a second run costs nothing.
set -euo pipefail
packages=(cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev libbenchmark-dev
          clang libclang-rt-14-dev
          lhasa jlha-utils 7zip libarchive-tools libdeflate-tools time)
if [[ "${KZ_WITH_WINDOWS:-0}" == 1 ]]; then
  packages+=(g++-mingw-w64-x86-64-posix wine wine64 googletest)
fi
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  sudo=""
  [[ $(id -u) -eq 0 ]] || sudo="sudo"
  echo "installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi
