#!/usr/bin/env bash
# Installs what building, testing and the demo need on Debian 12, as root or with sudo. Quick when all is there.
set -euo pipefail
packages=(
  g++ cmake ninja-build pkg-config binutils git      # building
  libglib2.0-dev libusb-1.0-0-dev                    # the library
  libjpeg62-turbo-dev libpng-dev
  libcairo2-dev libpango1.0-dev fonts-wqy-microhei   # the virtual printer's page
  libgdk-pixbuf-2.0-dev                              # its scanner's documents
  nlohmann-json3-dev libcli11-dev                    # its events and options
  libumockdev-dev umockdev                           # its USB
  libgtest-dev clang-format-14 libbenchmark-dev      # tests, benchmarks
)
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0
root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "setup: needs root or sudo to install: ${missing[*]}" >&2; exit 1; }
  root=(sudo)
fi
echo "setup: installing ${missing[*]}"
apt_get() { "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0 "$@" </dev/null; }
apt_get update
apt_get install -y --no-install-recommends "${missing[@]}" >/dev/null
