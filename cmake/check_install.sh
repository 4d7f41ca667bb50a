#!/bin/sh
# Installs into a temporary directory and builds a small client against it in
# the three ways that clients do: pkg-config shared, static, and find_package.
set -eu
cd "$(dirname "$0")/.."
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --preset release -B build/install -DKU_TESTS=OFF -DCMAKE_INSTALL_PREFIX="$prefix" >/dev/null
cmake --build build/install -j "$(nproc)" >/dev/null
cmake --install build/install >/dev/null
mkdir "$prefix/client"
cat > "$prefix/client/client.c" <<'END'
#include <stdio.h>
#include <ku.h>
int main(void)
{
    kuxa attrs = {KUXA_VERSION};
    kux *ctx = kuxcreate(NULL);
    if (ctx == NULL) return 1;
    kuxget(ctx, &attrs);
    tag_skuhm *heap = skuhmi(ctx, 0);
    if (heap == NULL) return 2;
    skuhmf(ctx, &heap);
    puts(attrs.kuxaversion);
    return kuxdestroy(ctx) != NULL;
}
END
cat > "$prefix/client/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(client C)
find_package(ku REQUIRED)
add_executable(client client.c)
target_link_libraries(client PRIVATE ku::ku)
END
libdir=$(dirname "$(find "$prefix" -name libku.so.2)")
export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046
cc -std=c99 -o "$prefix/shared" "$prefix/client/client.c" $(pkg-config --cflags --libs ku)
# shellcheck disable=SC2046
cc -std=c99 -o "$prefix/static" "$prefix/client/client.c" $(pkg-config --cflags ku) \
    "$libdir/libku.a" -lstdc++ -ldl
cmake -S "$prefix/client" -B "$prefix/client/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$prefix/client/build" >/dev/null
for program in shared client/build/client; do
    [ "$(LD_LIBRARY_PATH=$libdir "$prefix/$program")" = 2.0.5.0.0 ]
done
# A program with the static library has no library beside which modules would be.
[ "$(KU_SYSDIR=$libdir "$prefix/static")" = 2.0.5.0.0 ]
[ "$("$prefix/bin/kuq" version | head -n 1)" = "kuq 2.0.5" ]
cmake --build build/install --target uninstall >/dev/null
[ -z "$(find "$prefix" -name '*ku*' -type f -not -path '*/client/*')" ]
echo "install: shared, static, find_package and uninstall work"
