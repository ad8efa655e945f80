#!/bin/sh
# Installs the build into a fresh prefix and builds a small consumer against
# it twice, through the CMake package and through pkg-config, then runs both.
# Usage: install_test.sh BUILD WORK CONSUMER_SOURCE "SANITIZER_FLAGS"
set -eu
build=$1 work=$2 source=$3 flags=${4:-}
command -v cc >/dev/null 2>&1 || { echo "no C compiler: skipped"; exit 77; }
command -v pkg-config >/dev/null 2>&1 || { echo "no pkg-config: skipped"; exit 77; }

rm -rf "$work"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work.log" 2>&1 || { cat "$work.log"; exit 1; }
for file in include/sarvendo.h lib/libsarvendo.so lib/cmake/sarvendo/sarvendoConfig.cmake lib/pkgconfig/sarvendo.pc; do
  [ -f "$prefix/$file" ] || { echo "not installed: $file"; exit 1; }
done

# The CMake package.
cmake -S "$source" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_FLAGS="$flags" \
  -DCMAKE_EXE_LINKER_FLAGS="$flags" >"$work/cmake.log" 2>&1 || { cat "$work/cmake.log"; exit 1; }
cmake --build "$work/cmake" >>"$work/cmake.log" 2>&1 || { cat "$work/cmake.log"; exit 1; }
LD_LIBRARY_PATH="$prefix/lib" "$work/cmake/consumer"

# pkg-config, with the prefix found from the .pc file's own place.
PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --exists sarvendo
# shellcheck disable=SC2046
cc $flags -o "$work/pc-consumer" "$source/consumer.c" $(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs sarvendo)
LD_LIBRARY_PATH="$prefix/lib" "$work/pc-consumer"

# The command runs from the prefix, finding the library and its page there.
if [ -x "$prefix/bin/sarvendo" ]; then
  [ -f "$prefix/share/sarvendo/web/index.html" ] || { echo "page not installed"; exit 1; }
  env -u LD_LIBRARY_PATH "$prefix/bin/sarvendo" cells "<Grid><Body><B><I id='r' A='7'/></B></Body></Grid>" --row r --col A
fi
echo "install test passed"
