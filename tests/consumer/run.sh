#!/bin/sh
# run.sh BUILD COMPILER: installs the build into a folder of its own and builds the consumer against it, by CMake
# package (shared and static) and by pkg-config, as C++17; runs what comes out.
set -eu
build=$1
compiler=$2
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null

cmake -S "$here/cmake" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
cmake --build "$work/cmake"
for library in QSbase QSbase_static; do
  echo "== CMake, $library"
  "$work/cmake/consumer_$library"
done

echo "== pkg-config"
pc=$(dirname "$(find "$work/prefix" -name qsbase.pc)")
flags="$(PKG_CONFIG_PATH=$pc pkg-config --define-variable=prefix="$work/prefix" --cflags --libs qsbase)"
"$compiler" -std=c++17 "$here/consumer.cpp" $flags -o "$work/consumer"
LD_LIBRARY_PATH=$(dirname "$pc") "$work/consumer"

# Moved elsewhere, the package still works: nothing in it names the folder it was built or installed in.
mv "$work/prefix" "$work/moved"
cmake -S "$here/cmake" -B "$work/again" -DCMAKE_PREFIX_PATH="$work/moved" -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
cmake --build "$work/again" --target consumer_QSbase
echo "== CMake, moved"
"$work/again/consumer_QSbase"
