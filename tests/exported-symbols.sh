#!/usr/bin/env bash
# The library's dynamic symbols are exactly the functions that its header declares.
set -euo pipefail
library=$1 header=$2
diff <(sed -n 's/^PASSBOOK_API int \([A-Za-z0-9_]*\)(.*/\1/p' "$header" | sort) \
     <(nm -D --defined-only "$library" | awk '{print $NF}' | grep -vE '^__(asan|ubsan|odr_asan)' | sort) &&
  echo "exported symbols: as declared"
