#!/usr/bin/env bash
# The Windows build against the Linux build, as users see them: kzlha.exe
# under Wine and kzlha on Linux list, test and extract every shared archive
# with the same output, the same files and the same times, and build the
# same archive bytes from the same inputs through a create / add / update /
# delete sequence. Prints one line per difference; exits 1 if there is one.
#
#   parity.sh LINUX_KZLHA WINDOWS_KZLHA_EXE ARCHIVES_DIR
#
# Expects TZ and WINEDEBUG set by the caller (scripts/test-windows.sh), and a
# UTF-8 locale so that Wine maps non-ASCII file names as Linux stores them.
set -uo pipefail

lin=$(realpath "$1")
win=$(realpath "$2")
archives=$(realpath "$3")
work=$(mktemp -d "${TMPDIR:-/tmp}/kzparity.XXXXXX")
trap 'rm -rf "$work"' EXIT
failures=0
checks=0

fail() {
  echo "DIFFERENT: $*"
  failures=$((failures + 1))
}

# Runs one side in a directory; stdout, stderr and the exit code go to
# $out.{out,err,rc}. Windows writes "\n" line ends (binary streams), so the
# outputs are compared as they come.
run() {
  local side=$1 dir=$2 out=$3
  shift 3
  if [[ $side == lin ]]; then
    (cd "$dir" && "$lin" "$@") >"$out.out" 2>"$out.err"
  else
    (cd "$dir" && wine "$win" "$@") >"$out.out" 2>"$out.err"
  fi
  echo $? >"$out.rc"
}

# The same command on both sides, in twin directories lin/ and win/ below
# $1; the outputs must match.
both() {
  local base=$1 tag=$2
  shift 2
  run lin "$base/lin" "$base/lin-$tag" "$@"
  run win "$base/win" "$base/win-$tag" "$@"
  checks=$((checks + 1))
  local part
  for part in out err rc; do
    if ! cmp -s "$base/lin-$tag.$part" "$base/win-$tag.$part"; then
      fail "$tag: std$part differs"
      diff "$base/lin-$tag.$part" "$base/win-$tag.$part" | head -8 | sed 's/^/    /'
    fi
  done
}

# Names, sizes and modification times of a tree's files, and its
# directories' names (a directory made on the way has the time it was made).
tree_listing() {
  (cd "$1" && find . -mindepth 1 \( -type f -printf 'f %P %s %TY-%Tm-%Td %TH:%TM:%TS\n' \) \
    -o \( -type d -printf 'd %P\n' \) | sed 's/\.[0-9]*$//' | sort)
}

same_tree() {
  local tag=$1 a=$2 b=$3
  checks=$((checks + 1))
  if ! diff <(tree_listing "$a") <(tree_listing "$b") >"$work/tree.diff"; then
    fail "$tag: extracted trees differ"
    head -8 "$work/tree.diff" | sed 's/^/    /'
  elif ! diff -r "$a" "$b" >/dev/null; then
    fail "$tag: extracted bytes differ"
  fi
}

# ---- every shared archive: list, verbose list, test, extract ----------------------
while IFS= read -r archive; do
  rel=${archive#"$archives"/}
  tag=${rel//\//_}
  base="$work/read/$tag"
  mkdir -p "$base/lin" "$base/win"
  cp "$archive" "$base/lin/arc"
  cp "$archive" "$base/win/arc"
  both "$base" "$tag.l" l arc
  both "$base" "$tag.v" v arc
  both "$base" "$tag.t" t arc
  both "$base" "$tag.x" x -f -w=out arc
  same_tree "$tag.x" "$base/lin/out" "$base/win/out"
done < <(find "$archives" -type f \( -name '*.lzh' -o -name '*.exe' -o -name '*.com' -o -name '*.run' \) | sort)

# ---- writing: create, add with each method, update, delete, print ----------------
base="$work/write"
for side in lin win; do
  d="$base/$side"
  mkdir -p "$d/src/docs/deep" "$d/src/empty"
  printf 'plain text\n%.0s' {1..400} >"$d/src/readme.txt"
  head -c 70000 /dev/zero | tr '\0' 'z' >"$d/src/zeros.bin"
  seq 1 20000 >"$d/src/docs/numbers.txt"
  printf '\x89PNG\r\n\x1a\n%s' "$(seq 1 300 | sha256sum)" >"$d/src/docs/deep/image.png"
  printf 'accents\n' >"$d/src/docs/été.txt"
  printf 'kana\n' >"$d/src/docs/テスト.txt"
  : >"$d/src/docs/empty.txt"
  find "$d/src" -exec touch -h -d '2021-03-04 05:06:08' {} +
  touch -d '2001-02-03 04:05:06' "$d/src/zeros.bin"
done

# Like both, and the step must succeed: two equal failures are no parity.
both_ok() {
  both "$@"
  [[ $(cat "$1/lin-$2.rc") == 0 ]] || fail "$2: failed on Linux: $(head -c 200 "$1/lin-$2.err")"
}

both_ok "$base" create c new.lzh src/readme.txt src/zeros.bin
both_ok "$base" add-lh6 a -o6 new.lzh src/docs
both_ok "$base" add-lh7 a -o7 new.lzh "src/docs/テスト.txt"
both_ok "$base" add-stored a -z new.lzh src/docs/numbers.txt
for side in lin win; do
  printf 'changed\n' >"$base/$side/src/readme.txt"
  touch -d '2022-01-01 00:00:00' "$base/$side/src/readme.txt"
done
both_ok "$base" update u new.lzh src/readme.txt src/zeros.bin
both_ok "$base" delete d new.lzh src/docs/deep/image.png "src/docs/_t_.txt"
both_ok "$base" list v new.lzh
both_ok "$base" print p new.lzh src/zeros.bin
checks=$((checks + 1))
# Left after the sequence: readme, zeros, empty, numbers and the kana name.
grep -q ' 5 members$' "$base/lin-list.out" || fail "write: not the five members expected: $(cat "$base/lin-list.out")"
checks=$((checks + 1))
cmp -s "$base/lin/new.lzh" "$base/win/new.lzh" || fail "write: the archives' bytes differ"
both_ok "$base" extract x -f -w=out new.lzh
same_tree "write.x" "$base/lin/out" "$base/win/out"

# Each side reads what the other wrote.
checks=$((checks + 1))
(cd "$base/win" && wine "$win" t ../lin/new.lzh >/dev/null) || fail "cross: Windows does not test the Linux archive clean"
(cd "$base/lin" && "$lin" t ../win/new.lzh >/dev/null) || fail "cross: Linux does not test the Windows archive clean"

echo "parity: $checks comparisons, $failures different"
[[ $failures -eq 0 ]]
