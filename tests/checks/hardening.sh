#!/bin/sh
# hardening.sh READELF|OBJDUMP [--layout] FILE...: the files were built so that an error in them is harder to use: an
# ELF file by binutils' readelf, a PE file by its objdump. --layout leaves out what a small program may have no use for.
set -u
tool=$1
shift
layout=
if [ "${1:-}" = --layout ]; then
  layout=yes
  shift
fi
[ $# -gt 0 ] || { echo "no file to look at"; exit 1; }
bad=0
checked=0

complain() {
  echo "$file: $*"
  bad=1
}

# has TEXT PATTERN, in extended regular expressions.
has() {
  printf '%s\n' "$1" | grep -qE "$2"
}

check_elf() {
  segments=$("$tool" -lW "$file") || return 1
  dynamic=$("$tool" -dW "$file")
  has "$segments" 'Elf file type is DYN' || complain "stands at a fixed address (no PIE)"
  if has "$segments" 'INTERP'; then
    has "$dynamic" 'FLAGS_1.*PIE' || complain "is not marked as PIE"
  fi
  has "$segments" '^ *GNU_STACK ' || complain "says nothing of its stack"
  ! has "$segments" '^ *GNU_STACK .* R?W?E +0x' || complain "asks for an executable stack"
  ! has "$segments" '^ *LOAD .* RWE +0x' || complain "has memory both written and executed"
  has "$segments" '^ *GNU_RELRO ' || complain "its relocated tables stay writable (no RELRO)"
  has "$dynamic" '(FLAGS).*(BIND_NOW|NOW)' || complain "its jump table stays writable (no BIND_NOW)"
  ! has "$dynamic" 'TEXTREL' || complain "relocates its code (TEXTREL)"
  [ -z "$layout" ] || return 0
  symbols=$("$tool" -sW --dyn-syms "$file")
  has "$symbols" 'UND __stack_chk_fail' || complain "guards no stack frame"
  has "$symbols" 'UND __[a-z]+_chk(@|$)' || complain "calls no fortified function"
}

check_pe() {
  headers=$("$tool" -p "$file") || return 1
  sections=$("$tool" -hw "$file")
  has "$headers" '^[[:space:]]+DYNAMIC_BASE' || complain "stands at a fixed address (no DYNAMIC_BASE)"
  ! has "$headers" 'relocations stripped' || complain "cannot be moved (its relocations are stripped)"
  has "$sections" ' \.reloc +[0-9a-f]*[1-9a-f][0-9a-f]* ' || complain "cannot be moved (no relocations)"
  has "$headers" '^[[:space:]]+NX_COMPAT' || complain "asks for executable data (no NX_COMPAT)"
  if has "$headers" 'PE32\+'; then
    has "$headers" '^[[:space:]]+HIGH_ENTROPY_VA' || complain "keeps to low addresses (no HIGH_ENTROPY_VA)"
  fi
  ! printf '%s\n' "$sections" | grep -v READONLY | grep -qE 'LOAD.*CODE' || complain "has memory both written and executed"
  [ -z "$layout" ] || return 0
  has "$("$tool" -t "$file")" ' _*__stack_chk_fail$' || complain "guards no stack frame"
}

for file; do
  case $(head -c 2 "$file" 2>/dev/null) in
    MZ) check_pe || complain "cannot be read by $tool" ;;
    *) check_elf || complain "cannot be read by $tool" ;;
  esac
  checked=$((checked + 1))
done
echo "$checked files looked at"
exit $bad
