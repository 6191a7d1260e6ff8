#!/usr/bin/env bash
# Regenerates fuzz/seeds/<target>/ from small deterministic inputs, with the
# kzlha given as $1 (default: build/release/kzlha). The seeds are committed;
# rerun this only when the encoder's output or a target's input layout
# changes.
#
#   fuzz_list, fuzz_extract: archives kzlha makes (-o5/-o6/-o7, levels 1-4,
#     -z stored, several members with a directory), plus hand-patched names
#     that try to leave the destination (fuzz_extract).
#   fuzz_decode: a 6-byte head (method, original size, exact packed size,
#     one member) followed by the packed data of one member, for every
#     method including lh1 and lh4 taken from the shared archives.
#   fuzz_roundtrip: a 2-byte head (method and level, repeats) and a source.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
kzlha=$(realpath "${1:-$root/build/release/kzlha}")
seeds="$root/fuzz/seeds"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rm -rf "$seeds"
mkdir -p "$seeds"/{fuzz_list,fuzz_extract,fuzz_decode,fuzz_roundtrip} "$work/src/dir/sub"

python3 - "$work/src" <<'EOF'
import os, random, sys
d = sys.argv[1]
r = random.Random(7)
words = b"the archive member header level method window position code tree ".split()
text = b" ".join(r.choice(words) for _ in range(500))
files = {
    "text.txt": text,
    "random.bin": bytes(r.randrange(256) for _ in range(1500)),
    "zeros.bin": bytes(3000),
    "empty": b"",
    "one": b"x",
    "runs.bin": b"".join(bytes([r.randrange(4)]) * r.randrange(1, 300) for _ in range(40)),
    "far.bin": text[:400] + bytes(r.randrange(256) for _ in range(2500)) + text[:400],
    "dir/sub/deep.txt": text[:700],
    "dir/a.txt": b"abcabcabd" * 50,
}
for name, data in files.items():
    with open(os.path.join(d, name), "wb") as f:
        f.write(data)
EOF

# One archive per input, cycling through methods and levels so that every
# pair appears at least once on some input.
n=0
for input in text.txt random.bin zeros.bin runs.bin far.bin one; do
  for method in 5 6 7; do
    level=$((n % 4 + 1))
    (cd "$work/src" && "$kzlha" c -q -o$method -l$level "$work/a.lzh" "$input")
    cp "$work/a.lzh" "$seeds/fuzz_list/${input%.*}-lh$method-l$level.lzh"
    n=$((n + 1))
  done
done
(cd "$work/src" && "$kzlha" c -q -z "$work/a.lzh" text.txt empty)
cp "$work/a.lzh" "$seeds/fuzz_list/stored.lzh"
(cd "$work/src" && "$kzlha" c -q -o6 -l2 "$work/a.lzh" dir one empty)
cp "$work/a.lzh" "$seeds/fuzz_list/tree.lzh"
cp "$seeds"/fuzz_list/{stored,tree,text-lh5-l1,runs-lh7-l4,random-lh6-l1}.lzh "$seeds/fuzz_extract/"

python3 - "$seeds" "$root/../shared/archives" <<'EOF'
import glob, os, struct, sys
seeds, shared = sys.argv[1], sys.argv[2]

def members(b):
    """(header offset, header length, method, packed, original, level) per member."""
    pos = 0
    while pos + 22 <= len(b) and b[pos] != 0:
        level = b[pos + 20]
        method = b[pos + 2:pos + 7]
        packed, original = struct.unpack_from("<II", b, pos + 7)
        if level == 2:
            head = struct.unpack_from("<H", b, pos)[0]
        else:
            head = b[pos] + 2
            if level == 1:
                ext = struct.unpack_from("<H", b, pos + head - 2)[0]
                while ext:
                    packed -= ext
                    head += ext
                    ext = struct.unpack_from("<H", b, pos + head - 2)[0]
        yield pos, head, method, packed, original, level
        pos += head + packed

def rename(b, old, new):
    """The first member's name in a level-0/1 header replaced, sizes and sum fixed."""
    assert b[21] == len(old) and b[22:22 + len(old)] == old
    b = bytearray(b[:22] + new + b[22 + len(old):])
    b[0] += len(new) - len(old)
    b[21] = len(new)
    b[1] = sum(b[2:2 + b[0]]) & 0xFF
    return bytes(b)

# Names that try to leave the destination.
base = open(os.path.join(seeds, "fuzz_list", "text-lh5-l1.lzh"), "rb").read()
for tag, name in (("dotdot", b"../kzfz"), ("abs", b"/tmp/kzfz"), ("deep", b"a/../../kzfz"),
                  ("backslash", b"..\\kzfz")):
    open(os.path.join(seeds, "fuzz_extract", tag + ".lzh"), "wb").write(rename(base, b"text.txt", name))
for f in ("regression/dotdot.lzh", "regression/abspath.lzh", "regression/symlink1.lzh",
          "lha_unix114i/h1_symlink3.lzh", "lha_unix114i/h2_subdir.lzh"):
    src = os.path.join(shared, f)
    if os.path.exists(src):
        open(os.path.join(seeds, "fuzz_extract", os.path.basename(f)), "wb").write(open(src, "rb").read())

codes = {b"-lh0-": 0, b"-lh1-": 1, b"-lh4-": 4, b"-lh5-": 5, b"-lh6-": 6, b"-lh7-": 7}
sources = sorted(glob.glob(os.path.join(seeds, "fuzz_list", "*.lzh")))
sources += [os.path.join(shared, f) for f in ("lha_amiga_122/lh1.lzh", "lha_amiga_122/lh4.lzh",
                                              "lengths/lh1-64k.lzh", "lha213/lh0.lzh")]
for path in sources:
    b = open(path, "rb").read()
    for i, (pos, head, method, packed, original, level) in enumerate(members(b)):
        if method not in codes or original > 0x3FFFF or packed > 8192 or original == 0:
            continue
        data = b[pos + head:pos + head + packed]
        prefix = bytes([codes[method], original & 0xFF, original >> 8 & 0xFF, original >> 16, 0, i & 1])
        name = "%s-%d.bin" % (os.path.splitext(os.path.basename(path))[0], i)
        open(os.path.join(seeds, "fuzz_decode", name), "wb").write(prefix + data)
EOF

# Round trip: method/level selector, repeat count, source.
python3 - "$seeds/fuzz_roundtrip" "$work/src" <<'EOF'
import os, sys
out, src = sys.argv[1], sys.argv[2]
inputs = ["text.txt", "random.bin", "zeros.bin", "runs.bin", "far.bin", "dir/a.txt"]
for i, name in enumerate(inputs):
    data = open(os.path.join(src, name), "rb").read()[:2048]
    for selector in (i, i + 7):          # every method at two levels
        repeats = (i * 5) % 16
        with open(os.path.join(out, "%s-%d.bin" % (os.path.basename(name).split(".")[0], selector)), "wb") as f:
            f.write(bytes([selector % 15, repeats]) + data)
EOF
for t in "$seeds"/*; do
  echo "$(basename "$t"): $(ls "$t" | wc -l) seeds, $(du -sk "$t" | cut -f1) KiB"
done
