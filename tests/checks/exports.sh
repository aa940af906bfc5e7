#!/bin/sh
# exports.sh LIBRARY ROOT: the shared library exports the interface and nothing else, and has its soname.
set -u
library=$1
root=$2
bad=0

complain() {
  echo "$*"
  bad=1
}

symbols=$(nm -D --defined-only --demangle "$library" | cut -d' ' -f3-)
[ -n "$symbols" ] || complain "no exported symbol at all"

# Every exported name is declared with QSBASE_API in a public header.
names=$(printf '%s\n' "$symbols" |
  sed -E 's/^(vtable|typeinfo|typeinfo name) for //; s/\[abi:[a-z0-9]*\]//g; s/\(.*//; s/::.*//' | sort -u)
for name in $names; do
  grep -rqE --include='*.h' "QSBASE_API.*\b$name\b" "$root/QSbase" || complain "exported, but not declared with QSBASE_API: $name"
done

readelf -d "$library" | grep -q 'SONAME.*libQSbase\.so\.[0-9]' || complain "no versioned soname"
exit $bad
