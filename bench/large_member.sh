#!/usr/bin/env bash
# The largest member a level-1 header can describe: a source of 4 GiB - 1
# bytes is added, tested, extracted and compared with the source; then one
# byte more is refused. Opt-in (not in CI): it needs about 12 GB of free disk
# in the work directory and minutes of CPU.
#
#   bench/large_member.sh [KZLHA]      KZ_LARGE_WORK=DIR (default: a new
#                                      directory under /tmp) METHOD=-o5
#
# The source is sparse, with 1 MiB of text-like and random bytes every
# 256 MiB and in its last megabyte, so that the encoder sees both long zero
# runs and real matches, and the window slides over the 4 GiB boundary's
# neighbourhood. Prints the time of each step.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")
kzlha=$(realpath "${1:-$root/build/release/kzlha}")
method=${METHOD:--o5}
if [ -n "${KZ_LARGE_WORK:-}" ]; then
  work=$KZ_LARGE_WORK
  mkdir -p "$work"
  trap 'rm -rf "$work"/src "$work"/big.lzh "$work"/out "$work"/err' EXIT
else
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
fi
[ -x "$kzlha" ] || { echo "large_member: no kzlha at $kzlha" >&2; exit 2; }

need_kib=$((12 * 1024 * 1024))
free_kib=$(df -Pk "$work" | awk 'NR == 2 { print $4 }')
if ((free_kib < need_kib)); then
  echo "large_member: $work has $((free_kib / 1024)) MiB free, needs 12 GiB" >&2
  exit 2
fi

size=$((4 * 1024 * 1024 * 1024 - 1))
mkdir -p "$work/src" "$work/out"
python3 - "$work/src/big.bin" "$size" <<'EOF'
import os, random, sys
path, size = sys.argv[1], int(sys.argv[2])
r = random.Random(4)
words = b"member header window position length code tree level method ".split()
with open(path, "wb") as f:
    f.truncate(size)
    for start in list(range(0, size - (1 << 20), 256 << 20)) + [size - (1 << 20)]:
        f.seek(start)
        text = b" ".join(r.choice(words) for _ in range(60000))[: 1 << 19]
        f.write(text + r.randbytes((1 << 20) - len(text)))
EOF

step() {  # LABEL COMMAND...
  local label=$1
  shift
  local t0=$(date +%s.%N)
  "$@"
  printf '%-10s %8.1f s\n' "$label" "$(echo "$(date +%s.%N) - $t0" | bc)"
}

echo "source: $size bytes ($(du -k "$work/src/big.bin" | cut -f1) KiB on disk), method $method"
step add bash -c "cd '$work/src' && '$kzlha' a -q $method '$work/big.lzh' big.bin"
ls -l "$work/big.lzh"
"$kzlha" v "$work/big.lzh"
step test "$kzlha" t -q "$work/big.lzh"
step extract "$kzlha" x -q -w="$work/out" "$work/big.lzh"
step compare cmp "$work/src/big.bin" "$work/out/big.bin"
if command -v lhasa >/dev/null; then
  step lhasa-t lhasa t "$work/big.lzh" || echo "lhasa could not test it (peer limit, not ours)"
fi
echo "round trip of $size bytes: OK"

# One byte more is refused, naming the file, and the archive is untouched.
truncate -s $((size + 1)) "$work/src/big.bin"
before=$(cksum <"$work/big.lzh")
if (cd "$work/src" && "$kzlha" a -q "$method" "$work/big.lzh" big.bin) 2>"$work/err"; then
  echo "large_member: a source of 4 GiB was accepted" >&2
  exit 1
fi
grep -q 'big.bin' "$work/err" || { echo "large_member: the refusal does not name the file" >&2; exit 1; }
[ "$(cksum <"$work/big.lzh")" = "$before" ] || { echo "large_member: the archive changed" >&2; exit 1; }
echo "4 GiB source refused: $(cat "$work/err")"
