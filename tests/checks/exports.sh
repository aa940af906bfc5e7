#!/bin/sh
# exports.sh LIBRARY ROOT OBJDUMP: the shared library exports the interface, all of it, and nothing else; a
# versioned soname where there are sonames.
set -u
library=$1
root=$2
objdump=$3
bad=0

complain() {
  echo "$*"
  bad=1
}

case $library in
  *.dll)
    symbols=$("$objdump" -p "$library" | sed -nE '/^\[Ordinal\/Name Pointer\]/,/^$/s/^[[:space:]]*\[ *[0-9]+\].* ([^ ]+)$/\1/p' | c++filt) ;;
  *)
    symbols=$(nm -D --defined-only --demangle "$library" | cut -d' ' -f3-)
    "$objdump" -p "$library" | grep -qE 'SONAME +libQSbase\.so\.[0-9]' || complain "no versioned soname" ;;
esac
[ -n "$symbols" ] || complain "no exported symbol at all"

names=$(printf '%s\n' "$symbols" |
  sed -E 's/^(vtable|typeinfo|typeinfo name) for //; s/\[abi:[a-z0-9]*\]//g; s/\(.*//; s/::.*//' | sort -u)
for name in $names; do
  grep -rqE --include='*.h' "QSBASE_API.*\b$name\b" "$root/QSbase" || complain "exported, but not declared with QSBASE_API: $name"
done

functions=$(grep -rhE --include='*.h' '^QSBASE_API [^=;{]*\(' "$root/QSbase" | sed -E 's/ *\(.*//; s/.*[ *&]//' | sort -u)
[ -n "$functions" ] || complain "no declared function found"
for function in $functions; do
  printf '%s\n' "$names" | grep -qx "$function" || complain "declared with QSBASE_API, but not exported: $function"
done
exit $bad
