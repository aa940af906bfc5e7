#!/bin/sh
# tree.sh ROOT: every unit test stands where its source stands, no test file is left unbuilt, and the seam holds:
# operating-system headers are included in posix/ and win32/ only.
set -u
cd "$1" || exit 2
bad=0

complain() {
  echo "$*"
  bad=1
}

for test in $(cd tests/unit && find . -name '*_test.cpp' | sed 's|^\./||'); do
  topic=${test%_test.cpp}
  [ -n "$(find "QSbase/$topic.cpp" "QSbase/$topic.h" "$topic.cpp" 2>/dev/null)" ] || complain "tests/unit/$test tests nothing that is there"
  grep -qE "\b$(basename "$topic")\b" tests/unit/CMakeLists.txt || complain "tests/unit/$test is not built"
done

os_headers='unistd|fcntl|dirent|poll|dlfcn|utime|pthread|sched|signal|sys/[a-z_]*|netinet/[a-z_]*|arpa/inet|windows|winsock2|io|direct'
outside=$(grep -rnE --include='*.h' --include='*.cpp' "#include <($os_headers)(\.h)>" QSbase | grep -vE '^QSbase/([a-z]*/)?(posix|win32)/')
[ -z "$outside" ] || complain "operating-system headers outside the seam:
$outside"
exit $bad
