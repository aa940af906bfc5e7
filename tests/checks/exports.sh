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

hidden=$(printf '%s\n' "$symbols" | grep -E 'qsbase::|detail::')
[ -z "$hidden" ] || complain "internal names are exported:
$hidden"

# Every exported name is declared with QSBASE_API in a public header. Vague-linkage symbols of the standard library,
# which every C++ object holds, are weak and no part of an interface.
strong=$(nm -D --defined-only --demangle "$library" | grep -vE '^[0-9a-f]+ [VWu] ' | cut -d' ' -f3- |
  sed -E 's/^(vtable for|typeinfo for|typeinfo name for|non-virtual thunk to|guard variable for) //; s/\[abi:[a-z0-9]*\]//g')
names=$(printf '%s\n' "$strong" | sed -E 's/\(.*//; s/::.*//' | sort -u)
for name in $names; do
  grep -rqE --include='*.h' "QSBASE_API.*\b$name\b" "$root/QSbase" || complain "exported, but not declared with QSBASE_API: $name"
done

readelf -d "$library" | grep -q 'SONAME.*libQSbase\.so\.[0-9]' || complain "no versioned soname"
exit $bad
