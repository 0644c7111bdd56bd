#!/usr/bin/env bash
# Installs BUILD_DIR into a fresh prefix and builds the consumer in this folder against it twice,
# once through find_package and once through pkg-config with a plain compiler line, then runs
# both and checks what they print.
set -euo pipefail
if [ $# -ne 1 ]; then echo "usage: $0 BUILD_DIR" >&2; exit 2; fi
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"
fail() { echo "consumer: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >"$work/install.log" || { cat "$work/install.log"; fail "install failed"; }

# The installed tree: versioned shared libraries, headers, the tool, both package descriptions.
pcdir=$(dirname "$(find "$prefix" -name zelutility.pc -print -quit)")
[ -n "$pcdir" ] && [ "$pcdir" != . ] || fail "no zelutility.pc installed"
libdir=$(dirname "$pcdir")
for lib in mrlbase zelutility; do
  real=$(readlink -f "$libdir/lib$lib.so") || fail "lib$lib.so missing"
  soname=$(readelf -d "$real" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
  [[ "$soname" =~ ^lib$lib\.so\.[0-9]+$ ]] || fail "lib$lib has SONAME '$soname'"
  [ -e "$libdir/$soname" ] || fail "$soname link missing"
  [ -f "$pcdir/$lib.pc" ] || fail "$lib.pc missing"
done
for header in mrlbase/byte_string.h mrlbase/export.h zelutility/export.h zelutility/json.h zelutility/cert.h; do
  [ -f "$prefix/include/$header" ] || fail "header $header missing"
done
[ -f "$libdir/cmake/zelutility/zelutilityConfig.cmake" ] || fail "CMake package missing"
# No LD_LIBRARY_PATH: the tool must find its library from where it was installed.
"$prefix/bin/zeltool" --help >/dev/null || fail "installed zeltool does not run"

# The consumer is compiled like the tree it uses: a sanitizer build needs its runtime in the
# program too.
cache_value() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
cxx=$(cache_value CMAKE_CXX_COMPILER); cxx=${cxx:-g++}
cxxflags=$(cache_value CMAKE_CXX_FLAGS)
ldflags=$(cache_value CMAKE_EXE_LINKER_FLAGS)

text="consumer $(date +%s)"
expected_base64=$(printf '%s' "$text" | base64 -w0)

check_output() {  # $1: label, $2: output file
  grep -qx "base64 $expected_base64" "$2" || fail "$1: wrong base64 line"
  grep -qx 'algorithm RSA SHA256' "$2" || fail "$1: wrong algorithm line"
  grep -q '^json {"name":"consumer","marks":\[1,2\],"count":3}$' "$2" || fail "$1: wrong json line"
  if grep -q FAILED "$2"; then fail "$1: $(grep FAILED "$2")"; fi
}

# 1. CMake package.
cmake -S "$here" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
  -DCMAKE_CXX_FLAGS="$cxxflags" -DCMAKE_EXE_LINKER_FLAGS="$ldflags" >"$work/cmake.log" 2>&1 \
  || { cat "$work/cmake.log"; fail "configure against the package failed"; }
cmake --build "$work/cmake" >>"$work/cmake.log" 2>&1 || { cat "$work/cmake.log"; fail "build with CMake failed"; }
"$work/cmake/consumer" "$text" >"$work/cmake.out" || { cat "$work/cmake.out"; fail "CMake consumer failed"; }
check_output cmake "$work/cmake.out"

# 2. pkg-config and a plain compiler line.
export PKG_CONFIG_PATH="$pcdir"
# shellcheck disable=SC2046,SC2086
"$cxx" -std=c++17 -Wall -Wextra $cxxflags -o "$work/consumer_pc" "$here/main.cpp" \
  $(pkg-config --cflags --libs zelutility) $ldflags \
  || fail "build with pkg-config failed"
LD_LIBRARY_PATH="$(pkg-config --variable=libdir zelutility)" "$work/consumer_pc" "$text" >"$work/pc.out" \
  || { cat "$work/pc.out"; fail "pkg-config consumer failed"; }
check_output pkg-config "$work/pc.out"
cmp -s "$work/cmake.out" "$work/pc.out" || fail "the two builds print different text"

cat "$work/cmake.out"
echo "consumer: installed tree OK, CMake and pkg-config builds OK"
