#!/usr/bin/env bash
# Installs the current build into a fresh prefix and builds the consumer
# program against it twice, through find_package(pelk) and through
# pkg-config, running each result once.
#   run.sh BUILD_DIR CXX
set -euo pipefail
build=$1
cxx=$2
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(dirname "$(find "$work/prefix" -name pelk.pc)")

echo "== find_package(pelk)"
cmake -S "$here/consumer" -B "$work/cmake" -DCMAKE_CXX_COMPILER="$cxx" \
      -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer"

echo "== pkg-config pelk"
# shellcheck disable=SC2046  # the flags are meant to split into words
"$cxx" -std=c++17 -o "$work/consumer-pc" "$here/consumer/main.cpp" \
       $(PKG_CONFIG_PATH="$libdir" pkg-config --cflags --libs pelk)
"$work/consumer-pc"
