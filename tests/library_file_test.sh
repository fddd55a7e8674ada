#!/usr/bin/env bash
# The library's file: what it exports, and how it is hardened. Takes its path.
set -euo pipefail
library=$1
failed=0
complain() {
  echo "$1"
  failed=1
}

# Reads to the end, unlike grep -q, which would end its writer.
has() {
  grep -E "$1" >/dev/null
}

strangers=$(nm -DC --defined-only "$library" | cut -d' ' -f3- |
  grep -vE '^(SpectralSensorDevice|SpectralSensor|AmbientLightSensor|FlickerSensor)::|^pVendorLibPath$' || true)
[ -z "$strangers" ] || complain "exported beside the four classes: $strangers"
nm -DC --defined-only "$library" | has 'SpectralSensorDevice::Process' || complain "exports no Process"

for call in open ioctl write __android_log_print property_get; do
  nm -D --undefined-only "$library" | has " $call(@|$)" || complain "does not call $call by its own symbol"
done
readelf -dW "$library" | has 'FLAGS.*NOW' || complain "not bound at load (full RELRO)"
readelf -lW "$library" | has GNU_RELRO || complain "no RELRO segment"
if readelf -lW "$library" | has 'GNU_STACK.*RWE'; then complain "executable stack"; fi
exit $failed
