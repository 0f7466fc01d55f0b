#!/usr/bin/env bash
# Whether what was built is hardened as it should be.     hardening.sh LIBRARY-OR-PROGRAM...
set -euo pipefail
bad=0
for file in "$@"; do
  has() {  # WHAT PATTERN, in what readelf says of the file
    grep -qE "$2" <<<"$said" || { echo "hardening: $file: $1"; bad=1; }
  }
  said=$(readelf -dlWn "$file" && readelf -Ws --dyn-syms "$file")
  has 'no RELRO' 'GNU_RELRO'
  has 'symbols are bound late' 'FLAGS_1.*\bNOW\b'
  has 'the stack is executable' 'GNU_STACK.* RW +0x'
  has 'no stack protector' '__stack_chk_fail'
  has 'nothing is fortified' '__[a-z]+_chk@'
  [[ $(basename "$file") == *.so* ]] || has 'no position-independent program' 'FLAGS_1.*\bPIE\b'
  [ "$(uname -m)" != x86_64 ] || objdump -d --no-show-raw-insn "$file" | grep endbr64 >/dev/null ||
    { echo "hardening: $file: branches are not protected"; bad=1; }
  ! grep -q TEXTREL <<<"$said" || { echo "hardening: $file: code is relocated"; bad=1; }
done
exit $bad
