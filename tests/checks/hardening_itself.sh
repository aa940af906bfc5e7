#!/bin/sh
# hardening_itself.sh HARDENING COMPILER READELF|OBJDUMP: hardening.sh passes a program that has everything, and finds
# each thing that one lacks.
set -u
hardening=$1
compiler=$2
tool=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bad=0

cat >"$work/program.cpp" <<'END'
#include <cstring>
char kept[64];
int main(int count, char **values) {
  char text[64];
  std::strcpy(text, values[count - 1]);
  std::memcpy(kept, text, sizeof kept);
  return kept[1];
}
END

cat >"$work/both.s" <<'END'
  .section .both, "awx", @progbits
  .quad 0
  .section .note.GNU-stack, "", @progbits
END
cat >"$work/absolute.s" <<'END'
  .quad main
  .section .note.GNU-stack, "", @progbits
END

# expect COMPLAINT|nothing OPTION...: what hardening.sh says of the program that is built with the options.
expect() {
  complaint=$1
  shift
  "$compiler" -O2 -w "$work/program.cpp" -o "$work/program.exe" "$@" || exit 1
  said=$("$hardening" "$tool" "$work/program.exe")
  passed=$?
  if [ "$complaint" = nothing ]; then
    [ $passed -eq 0 ] && return
  elif [ $passed -ne 0 ] && [ "$(printf '%s\n' "$said" | grep -c "program.exe: .*$complaint")" -eq 1 ]; then
    return
  fi
  echo "with $*, where it should complain of $complaint: $said"
  bad=1
}

whole_elf() {
  complaint=$1
  shift
  expect "$complaint" -fPIE -pie -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 \
    -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack "$@"
}

whole_pe() {
  complaint=$1
  shift
  expect "$complaint" -fstack-protector-strong -Wl,--dynamicbase,--nxcompat $high "$@"
}

case $compiler in
  *mingw32*)
    high=
    case $compiler in
      *x86_64*) high=-Wl,--high-entropy-va; whole_pe HIGH_ENTROPY_VA -Wl,--disable-high-entropy-va ;;
    esac
    whole_pe nothing
    whole_pe 'no DYNAMIC_BASE' -Wl,--disable-dynamicbase
    whole_pe 'no relocations' -Wl,--disable-reloc-section
    whole_pe NX_COMPAT -Wl,--disable-nxcompat
    whole_pe 'written and executed' -Wl,--omagic
    whole_pe 'stack frame' -fno-stack-protector ;;
  *)
    whole_elf nothing
    whole_elf 'no PIE' -fno-pie -no-pie
    whole_elf 'executable stack' -Wl,-z,execstack
    whole_elf 'no RELRO' -Wl,-z,norelro
    whole_elf 'no BIND_NOW' -Wl,-z,lazy
    whole_elf 'written and executed' "$work/both.s"
    whole_elf TEXTREL -Wl,-z,notext "$work/absolute.s"
    whole_elf 'stack frame' -fno-stack-protector
    whole_elf 'fortified' -U_FORTIFY_SOURCE ;;
esac
exit $bad
