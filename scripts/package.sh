#!/usr/bin/env bash
# Builds the Debian packages, as root or as a user with sudo, and lays them into out/packages. --check also holds them
# against lintian.
#     scripts/package.sh [--check]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh package
# The build leaves files in the source and beside it: a copy of what belongs to it gets them.
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
mkdir "$copy/source"
tar -c --exclude=./.git --exclude=./build --exclude=./out . | tar -x -C "$copy/source"
(cd "$copy/source" && DEB_BUILD_OPTIONS="parallel=$(nproc) noautodbgsym" dpkg-buildpackage -us -uc -b)
if [ "${1:-}" = --check ]; then
  lintian --allow-root --fail-on error,warning "$copy"/*.changes
fi
rm -rf out/packages
mkdir -p out/packages
cp "$copy"/*.deb out/packages
echo "The packages:"
ls out/packages/*.deb
