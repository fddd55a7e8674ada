#!/usr/bin/env bash
# Checks the library's file: its exports and its hardening. The arguments are the path of the library
# and the list of its exports.
set -euo pipefail
library=$1 exports=$2
failed=0
complain() {
  echo "$1"
  failed=1
}

# Reads all of its input, unlike grep -q, which would end the writing program early.
has() {
  grep -E "$1" >/dev/null
}

# The exports are the interface, so that they change only together with the list.
nm -DC --defined-only "$library" | cut -d' ' -f3- | LC_ALL=C sort -u | diff "$exports" - ||
  complain "it exports other symbols (>) than $exports lists (<)"

for call in open ioctl write __android_log_print property_get; do
  nm -D --undefined-only "$library" | has " $call(@|$)" || complain "does not call $call by its own symbol"
done
readelf -dW "$library" | has 'FLAGS.*NOW' || complain "not bound at load (full RELRO)"
readelf -lW "$library" | has GNU_RELRO || complain "no RELRO segment"
if readelf -lW "$library" | has 'GNU_STACK.*RWE'; then complain "executable stack"; fi
nm -D --undefined-only "$library" | has ' __stack_chk_fail(@|$)' || complain "no stack canaries"
# glibc's headers have the checked variants of the calls that this library makes for g++ only.
readelf -p .comment "$library" | has clang || nm -D --undefined-only "$library" | has ' __[a-z]+_chk(@|$)' ||
  complain "not built with _FORTIFY_SOURCE"
readelf -dW "$library" | has 'RUNPATH.*\[\$ORIGIN\]' || complain "the RUNPATH is not \$ORIGIN alone"
# Branch protection. The linker keeps the note only if the C library's start files have it as well, which
# Debian's do not; every exported function begins with a landing pad in any case.
if readelf -hW "$library" | has AArch64; then
  objdump=$(command -v aarch64-linux-gnu-objdump || echo objdump)
  functions=$(nm -D --defined-only "$library" | grep -c ' T ')
  guarded=$("$objdump" -d --no-show-raw-insn "$library" |
    awk '/^[0-9a-f]+ <.*>:$/ { getline; if (/paciasp|bti/) ++n } END { print n + 0 }')
  readelf -nW "$library" | has 'AArch64 feature: BTI, PAC' || [ "$guarded" -ge "$functions" ] ||
    complain "no BTI and PAC: $guarded landing pads for $functions exported functions"
fi
exit $failed
