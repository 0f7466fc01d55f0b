#!/usr/bin/env bash
# Looks for what building, testing and the demo need, as the build will look for it. What is missing is installed by apt,
# as root or with sudo, from Debian 12's packages; without apt it is named. Quick when all is there.
#     scripts/setup.sh [bench|coverage|fuzz|lint|mutate|package]      what the benchmarks, the static checks and so on need too
set -euo pipefail
needs=(  # what to look for, and the package that has it
  'command c++ : g++' 'command cc : gcc' 'command nm : binutils'
  'command cmake : cmake' 'command ninja : ninja-build' 'command pkg-config : pkg-config'
  # the library
  'module glib-2.0 : libglib2.0-dev' 'module libusb-1.0 : libusb-1.0-0-dev'
  'header jpeglib.h : libjpeg-dev' 'header png.h : libpng-dev'
  # the virtual printer: its page, its scanner's documents, its events and options, its USB
  'module pangocairo : libpango1.0-dev' 'module gdk-pixbuf-2.0 : libgdk-pixbuf-2.0-dev'
  'header nlohmann/json.hpp : nlohmann-json3-dev' 'header CLI/CLI.hpp : libcli11-dev'
  'module umockdev-1.0 : libumockdev-dev' 'command umockdev-wrapper : umockdev'
  # the tests
  'header gtest/gtest.h : libgtest-dev' 'command /usr/bin/python3 : python3' 'command py.test-3 : python3-pytest'
)
wanted=(  # building and testing go on without: the formatting is not checked then, pages show another font
  'command clang-format-14 : clang-format-14' 'font WenQuanYi Micro Hei Mono : fonts-wqy-microhei'
  'command /usr/sbin/ser2net : ser2net' 'command socat : socat'  # the test of a printer on another machine is skipped
)
case ${1:-} in
  bench)
    needs+=('header benchmark/benchmark.h : libbenchmark-dev' 'command python3 : python3')
    wanted+=(  # what we are held against
      'command bmptopnm : netpbm' 'command djpeg : libjpeg-turbo-progs' 'command gs : ghostscript'
      'command /usr/lib/cups/filter/imagetoraster : cups-filters' 'command ppdc : cups-ppdc'
    ) ;;
  coverage) needs+=('command gcovr : gcovr') ;;
  mutate) needs+=('command bwrap : bubblewrap' 'command python3 : python3') ;;
  package)
    needs+=('command dh : debhelper' 'command dpkg-buildpackage : dpkg-dev' 'command lintian : lintian'
      'command dh_python3 : dh-python')
    ;;
  fuzz)
    needs+=('command clang++-14 : clang-14' 'command llvm-symbolizer-14 : llvm-14' 'fuzzer clang++-14 : libclang-rt-14-dev')
    ;;
  lint)
    needs+=('header benchmark/benchmark.h : libbenchmark-dev' 'command clang-tidy-14 : clang-tidy-14'
      'command cppcheck : cppcheck')
    ;;
esac

here() {  # KIND NAME
  case $1 in
    command) command -v "$2" ;;
    module) pkg-config --exists "$2" ;;
    header) c++ -E -x c++ - <<<"#if !__has_include(<$2>)"$'\n#error\n#endif' ;;
    fuzzer) command -v "$2" && ls "$("$2" -print-resource-dir)"/lib/*/libclang_rt.fuzzer* ;;
    font) fc-list -q "$2" ;;
  esac >/dev/null 2>&1
}
look() {
  missing=()
  for need in "${needs[@]}"; do
    read -r kind name <<<"${need% : *}"
    here "$kind" "$name" || missing+=("$need")
  done
}
root=(env)
[ "$(id -u)" -eq 0 ] || root=(sudo env)
can_install() { command -v apt-get && command -v "${root[0]}"; } >/dev/null
apt_get() { "${root[@]}" DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0 "$@" </dev/null >/dev/null; }

look
why="there is no apt-get to install it"
! here command apt-get || why="root or sudo is needed to install it"
if [ ${#missing[@]} -gt 0 ] && can_install; then
  echo "setup: installing ${missing[*]##* }"
  apt_get update
  apt_get install -y --no-install-recommends "${missing[@]##* }"
  look
  why="apt-get did not bring it"
fi
if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: this is missing, and $why (in brackets Debian 12's package):" >&2
  for need in "${missing[@]}"; do echo "  ${need% : *} (${need##* })" >&2; done
  here command c++ && here command pkg-config || echo "Without c++ and pkg-config no library is found." >&2
  exit 1
fi

needs=("${wanted[@]}")
look
for need in "${missing[@]}"; do
  package=${need##* }
  { can_install && apt-cache show "$package" >/dev/null 2>&1 && echo "setup: installing $package" &&
    apt_get install -y --no-install-recommends "$package"; } || echo "setup: going on without the ${need% : *}"
done
