#!/bin/sh
# rpath.sh BUILD READELF: what is installed looks for libraries beside itself or where the system has them, and in no
# folder of the machine that built it.
set -u
build=$1
readelf=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work" >/dev/null || exit 1

bad=0
binaries=0
for file in $(find "$work" -type f \( -perm -u+x -o -name '*.so*' \)); do
  dynamic=$("$readelf" -dW "$file" 2>/dev/null) || continue
  binaries=$((binaries + 1))
  folders=$(printf '%s\n' "$dynamic" | sed -nE 's/.*\((RPATH|RUNPATH)\).*\[(.*)\]/\2/p' | tr ':' '\n' | grep -vE '^\$ORIGIN(/|$)')
  [ -z "$folders" ] || { echo "${file#"$work"}: looks for libraries in $folders"; bad=1; }
done
[ $binaries -ge 2 ] || { echo "$binaries binaries installed"; bad=1; }
exit $bad
