#!/usr/bin/env bash
# Installs the build into a temporary prefix and builds the example host
# against it twice, through pkg-config and through find_package, then runs
# both on a fresh archive and the installed kzlha on the result.
set -euo pipefail
build=$1
source_dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null

test -x "$prefix/bin/kzlha"
test -f "$prefix/include/kzlha/kzlha.h"
test -f "$prefix/share/man/man1/kzlha.1"
libdir=$(ls -d "$prefix"/lib*/ | head -1)
module="$libdir/libKzLha73.so"
test -f "$module"

# pkg-config
export PKG_CONFIG_PATH="$libdir/pkgconfig"
cc -std=c11 -Wall -Werror "$source_dir/examples/host.c" $(pkg-config --cflags --libs kzlha) -o "$work/host-pc"
test "$(realpath "$(pkg-config --variable=enginemodule kzlha)")" = "$(realpath "$module")"

# find_package
cmake -S "$source_dir/examples" -B "$work/build-example" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/build-example" >/dev/null

printf 'hello from the example host\n%.0s' {1..50} > "$work/input.txt"
mkdir "$work/out1" "$work/out2"
(cd "$work" && "$work/host-pc" "$module" "$work/a.lzh" input.txt "$work/out1" >/dev/null)
cmp "$work/input.txt" "$work/out1/input.txt"
(cd "$work" && "$work/build-example/host" "$module" "$work/b.lzh" input.txt "$work/out2" >/dev/null)
cmp "$work/input.txt" "$work/out2/input.txt"

# The installed program finds its engine on its own.
(cd "$work" && "$prefix/bin/kzlha" a "$work/c.lzh" input.txt >/dev/null)
"$prefix/bin/kzlha" t "$work/c.lzh" >/dev/null
echo "install check passed"
