#!/usr/bin/env bash
# Scale: `kzlha l`, `kzlha t`, `kzlha x` (into a fresh directory) and
# `kzlha d` (three members deleted) on archives of 10,000, 30,000 and
# 100,000 small members, with wall time, time per member and peak memory
# (GNU time's %M); the rows marked L run lhasa's l, t and x on the same
# archive, side by side. Time should grow with the member count and memory
# should not.
#
# kzlha keeps one record per selected member for its own result lines, so
# its peak grows with the count by design. The rows marked E run the same
# test and delete through the engine module alone (a ctypes host calling
# KzTestArchive / KzDeleteFiles, nothing listed), which is where memory
# must stay flat.
#
#   bench/scale.sh [KZLHA]            COUNTS="10000 30000 100000" by default
#
# KZLHA defaults to build/release/kzlha. The archives are written directly
# (level-1 headers, -lh0- members of 1 to 64 bytes, names spread over 100
# directories), which takes a second where adding 100,000 files would take
# minutes; each is checked with `kzlha t` before it is measured.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")
kzlha=$(realpath "${1:-$root/build/release/kzlha}")
counts=${COUNTS:-10000 30000 100000}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
[ -x "$kzlha" ] || { echo "scale: no kzlha at $kzlha" >&2; exit 2; }
[ -x /usr/bin/time ] || { echo "scale: GNU time (/usr/bin/time) is needed" >&2; exit 2; }

make_archive() {  # COUNT PATH
  python3 - "$1" "$2" <<'EOF'
import struct, sys
count, path = int(sys.argv[1]), sys.argv[2]

def crc16(data, crc=0):
    for b in data:
        crc ^= b
        for _ in range(8):
            crc = (crc >> 1) ^ 0xA001 if crc & 1 else crc >> 1
    return crc

dos_time = (46 << 25) | (11 << 21) | (23 << 16) | (12 << 11)  # 2026-11-23 12:00
out = bytearray()
for i in range(count):
    name = b"d%02d/member%06d.txt" % (i % 100, i)
    data = (b"%d," % i * 64)[: 1 + i % 64]
    base = struct.pack("<5sIIIBBB", b"-lh0-", len(data), len(data), dos_time, 0x20, 1, len(name))
    base += name + struct.pack("<HBH", crc16(data), ord("U"), 0)
    out += bytes([len(base), sum(base) & 0xFF]) + base + data
out += b"\0"
open(path, "wb").write(out)
EOF
}

# The engine without kzlha: python3 engine.py MODULE test|delete ARCHIVE [NAMES...]
cat >"$work/engine.py" <<'EOF'
import ctypes, sys
module, op, archive, names = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4:]
e = ctypes.CDLL(module)
e.KzCreateObject.restype = ctypes.c_void_p
e.KzCreateList.restype = ctypes.c_void_p
e.KzCreateList.argtypes = [ctypes.c_void_p, ctypes.c_uint32]
e.KzAddToList.argtypes = [ctypes.c_void_p, ctypes.c_wchar_p, ctypes.c_uint32]
for f in ("KzInitArchive", "KzTestArchive", "KzDeleteFiles"):
    getattr(e, f).restype = ctypes.c_int32
e.KzInitArchive.argtypes = [ctypes.c_void_p, ctypes.c_wchar_p, ctypes.c_ssize_t, ctypes.c_ssize_t]
e.KzTestArchive.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_ssize_t]
e.KzDeleteFiles.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_ssize_t]
h = e.KzCreateObject()
rc = e.KzInitArchive(h, archive, 0, 0)
if rc < 0 or op == "open":
    pass
elif op == "test":
    rc = e.KzTestArchive(h, None, 0)
elif rc >= 0:
    items = e.KzCreateList(h, 1)
    for n in names:
        e.KzAddToList(items, n, 0)
    rc = e.KzDeleteFiles(h, items, 0)
sys.exit(0 if rc >= 0 else 1)
EOF
module=$(dirname "$kzlha")/libKzLha73.so

measure() {  # LABEL COUNT COMMAND...  -> one table row
  local label=$1 count=$2
  shift 2
  /usr/bin/time -f '%e %M' -o "$work/time" "$@" >/dev/null 2>"$work/err" ||
    { echo "scale: $label failed:" >&2; cat "$work/err" >&2; exit 1; }
  read -r seconds kib <"$work/time"
  awk -v l="$label" -v n="$count" -v s="$seconds" -v k="$kib" \
    'BEGIN { printf "%-4s %8d %9.2f %12.2f %10d\n", l, n, s, s * 1e6 / n, k }'
}

have_lhasa() { command -v lhasa >/dev/null; }

printf '%-4s %8s %9s %12s %10s\n' cmd members seconds us/member peakKiB
for n in $counts; do
  archive="$work/scale-$n.lzh"
  make_archive "$n" "$archive"
  "$kzlha" t -q "$archive" >/dev/null
  measure l "$n" "$kzlha" l "$archive"
  have_lhasa && measure Ll "$n" lhasa l "$archive"
  measure t "$n" "$kzlha" t -q "$archive"
  have_lhasa && measure Lt "$n" lhasa t "$archive"
  # Creating 10,000s of files is at the mercy of the file system's state,
  # so the two extractors take turns, three times, and each keeps its best.
  for round in 1 2 3; do
    rm -rf "$work/x" && mkdir "$work/x"
    measure x "$n" "$kzlha" x -q -w="$work/x" "$archive" >>"$work/x-kzlha"
    if have_lhasa; then
      rm -rf "$work/x" && mkdir "$work/x"
      measure Lx "$n" sh -c 'cd "$1" && lhasa xq "$2"' sh "$work/x" "$archive" >>"$work/x-lhasa"
    fi
  done
  for f in "$work/x-kzlha" "$work/x-lhasa"; do
    [ -f "$f" ] && sort -k3,3n "$f" | head -1
  done
  rm -rf "$work/x" "$work/x-kzlha" "$work/x-lhasa"
  [ -f "$module" ] && measure Eo "$n" python3 "$work/engine.py" "$module" open "$archive"
  [ -f "$module" ] && measure Et "$n" python3 "$work/engine.py" "$module" test "$archive"
  cp "$archive" "$work/d.lzh"
  measure d "$n" "$kzlha" d -q "$work/d.lzh" d00/member000000.txt d01/member000001.txt \
    "d99/member$(printf %06d $((n - 1))).txt"
  left=$("$kzlha" l --json "$work/d.lzh" | grep -c '"kind":"member"')
  ((left == n - 3)) || { echo "scale: d left $left members of $n, expected $((n - 3))" >&2; exit 1; }
  if [ -f "$module" ]; then
    cp "$archive" "$work/d.lzh"
    measure Ed "$n" python3 "$work/engine.py" "$module" delete "$work/d.lzh" d00/member000000.txt
  fi
  rm -f "$archive" "$work/d.lzh"
done
