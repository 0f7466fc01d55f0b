#!/usr/bin/env bash
# What a host's developer does: installs the library, builds README's host program in every way that README tells, and
# prints with it on the installed virtual printer.
#     install.sh SOURCE BUILD LIBDIR
# shellcheck disable=SC2046,SC2086  # compilers' options, word by word
set -euo pipefail
source=$1 build=$2 prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
lib=$prefix/$3
export LD_LIBRARY_PATH=$lib PKG_CONFIG_PATH=$lib/pkgconfig CMAKE_PREFIX_PATH=$prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
# Nothing is exported that is not declared, and nothing declared is missing.
diff <(sed -n 's/^PASSBOOK_API .* \**\([A-Za-z0-9_]*\)(.*/\1/p' "$prefix/include/passbook.h" | sort) \
     <(nm -D --defined-only "$lib/libpassbook.so" | awk '{print $NF}' | grep -vE '^__(asan|ubsan|odr_asan)' | sort)

cd "$prefix"
cmake -S "$source/tests/consumer" -B consumer >/dev/null && cmake --build consumer >/dev/null
compile="${CC:-cc} ${CFLAGS:-} consumer/host.c"
$compile $(pkg-config --cflags --libs 'passbook >= 1.0') -o host-pkg-config
$compile -Iinclude -L"$lib" -lpassbook -o host-plain
for host in consumer/host ./host-pkg-config ./host-plain; do
  bin/passbook-sim --events events --usb -- "$host" USB
  grep -q '"event":"text".*存入 Deposit   100.00' events || { echo "install: $host printed nothing"; exit 1; }
done
