#!/bin/sh
# run-windows.sh BUILD SOURCE ARCH: installs the build into a folder of its own, builds the consumers against it as
# C++17 with the toolchain file of ARCH and runs them under Wine: against the import library, against the static
# library, without either by LoadLibrary, and within plug-ins that are unloaded again.
set -eu
build=$1
source=$2
arch=$3
work=$build/consumer
rm -rf "$work"
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$source/tests/consumer/cmake" -B "$work/cmake" -DCMAKE_TOOLCHAIN_FILE="$source/cmake/windows-$arch.cmake" \
  -DQSbase_DIR="$work/prefix/lib/cmake/QSbase" >/dev/null
cmake --build "$work/cmake"

run() {
  echo "== $*"
  "$source/scripts/wine" "$arch" "$@"
}

# The static one runs where no DLL is; the others find theirs beside themselves.
run "$work/cmake/consumer_QSbase_static.exe"
cp "$work/prefix/bin/"*.dll "$work/cmake"
for program in consumer_QSbase windows_h_FIRST windows_h_LAST; do
  run "$work/cmake/$program.exe"
done
run "$work/cmake/loadlibrary.exe" libQSbase.dll
cd "$work/cmake"
for plugin in plugin_QSbase plugin_QSbase_static; do
  run ./unload.exe $plugin.dll
done
cd "$source"

# By hand with the flags of qsbase.pc, everything in one file.
flags() {
  PKG_CONFIG_LIBDIR=$work/prefix/lib/pkgconfig pkg-config --define-variable=prefix="$work/prefix" "$@" qsbase
}
# shellcheck disable=SC2046
"$arch-w64-mingw32-g++-posix" -std=c++17 -static "$source/tests/consumer/consumer.cpp" $(flags --static --cflags --libs) \
  -L"$source/build/deps/$arch/lib" -o "$work/by-hand.exe"
run "$work/by-hand.exe"
