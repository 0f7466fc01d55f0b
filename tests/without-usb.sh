#!/usr/bin/env bash
# The library alone, without USB: it needs no libusb, and says why the port USB cannot be opened.
#     without-usb.sh SOURCE
set -euo pipefail
build=$(mktemp -d)
trap 'rm -rf "$build"' EXIT
cmake -S "$1" -B "$build" -G "${CMAKE_GENERATOR:-Ninja}" -DCMAKE_BUILD_TYPE=Debug -DPASSBOOK_SIM=OFF -DPASSBOOK_USB=OFF \
  -DPASSBOOK_WERROR=ON >/dev/null
cmake --build "$build" >/dev/null
if readelf -d "$build/api/libpassbook.so" | grep libusb; then exit 1; fi
"${CC:-cc}" "$1/examples/c/print_page.c" -I"$1/api" -L"$build/api" -lpassbook -o "$build/host"
said=$(LD_LIBRARY_PATH=$build/api "$build/host" USB stamp.bmp 2>&1 || true)
[[ $said == *'built without USB'* ]]
