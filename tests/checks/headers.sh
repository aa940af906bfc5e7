#!/bin/sh
# headers.sh COMPILER ROOT HEADER...: each public header compiles alone as C++17 without a warning, none includes an
# operating-system header, and qsbase.h includes them all.
set -u
compiler=$1
root=$2
shift 2
bad=0

complain() {
  echo "$*"
  bad=1
}

# What a public header may include: this library and the standard library.
standard='algorithm|array|atomic|cstdarg|cstddef|cstdint|cstdio|cstdlib|cstring|ctime|exception|functional|list|map|memory|set|string|string_view|utility|vector'
for header; do
  path=$root/QSbase/$header
  echo "#include <QSbase/$header>" |
    "$compiler" -std=c++17 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wundef -Werror -I"$root" -x c++ -fsyntax-only - ||
    complain "$header does not compile alone as C++17"
  foreign=$(sed -nE 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"]([^>"]*)[>"].*/\1/p' "$path" |
    grep -vE "^(QSbase/.*|$standard)$")
  [ -z "$foreign" ] || complain "$header includes $foreign"
  [ "$header" = qsbase.h ] || grep -qF "<QSbase/$header>" "$root/QSbase/qsbase.h" || complain "qsbase.h lacks $header"
done

# In the opposite order, too.
for header; do
  echo "#include <QSbase/$header>"
done | sort -r | "$compiler" -std=c++17 -Wall -Wextra -Werror -I"$root" -x c++ -fsyntax-only - ||
  complain "the headers do not compile in reverse order"
exit $bad
