#!/usr/bin/env bash
# The library's file: what it exports, and how it is hardened. Takes its path, and the
# list of its exports.
set -euo pipefail
library=$1 exports=$2
failed=0
complain() {
  echo "$1"
  failed=1
}

# Reads to the end, unlike grep -q, which would end its writer.
has() {
  grep -E "$1" >/dev/null
}

# What it exports, by a list; a change there is one of the interface.
nm -DC --defined-only "$library" | cut -d' ' -f3- | LC_ALL=C sort -u | diff "$exports" - ||
  complain "it exports other symbols (>) than $exports lists (<)"

for call in open ioctl write __android_log_print property_get; do
  nm -D --undefined-only "$library" | has " $call(@|$)" || complain "does not call $call by its own symbol"
done
readelf -dW "$library" | has 'FLAGS.*NOW' || complain "not bound at load (full RELRO)"
readelf -lW "$library" | has GNU_RELRO || complain "no RELRO segment"
if readelf -lW "$library" | has 'GNU_STACK.*RWE'; then complain "executable stack"; fi
nm -D --undefined-only "$library" | has ' __stack_chk_fail(@|$)' || complain "no stack canaries"
nm -D --undefined-only "$library" | has ' __[a-z]+_chk(@|$)' || complain "not built with _FORTIFY_SOURCE"
readelf -dW "$library" | has 'RUNPATH.*\[\$ORIGIN\]' || complain "the RUNPATH is not \$ORIGIN alone"
if readelf -hW "$library" | has AArch64; then
  readelf -nW "$library" | has 'AArch64 feature: BTI, PAC' || complain "no BTI and PAC notes"
fi
exit $failed
