#!/usr/bin/env bash
# Installs a build into an empty folder, moves it elsewhere and uses it as
# another project would: check.sh SOURCE BUILD COMPILER
set -euo pipefail

source=$1 build=$2 compiler=$3
work=$(mktemp -d)
exec 3>&1 >"$work/log" 2>&1
trap '[ $? -eq 0 ] || cat "$work/log" >&3; rm -rf "$work"' EXIT
set -x

cmake --install "$build" --prefix "$work/installed"
tool=$(cd "$work/installed" && find . -type f -path "*/bin/torvex")
version=$("$work/installed/$tool" --version)
mv "$work/installed" "$work/moved"
[ "$("$work/moved/$tool" --version)" = "$version" ]

package=$(dirname "$(find "$work/moved" -name torvex.pc)")
for reference in "$source" "$build" "$work"; do
  ! grep -rE "(^|[^[:alnum:]_}./-])$reference(/|\"|$)" "$package" "$package/../cmake" || exit 1
done

cp -r "$source/examples" "$work/examples"
cmake -S "$work/examples" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$work/moved" \
  -DCMAKE_CXX_COMPILER="$compiler"
cmake --build "$work/build"
ctest --test-dir "$work/build" --output-on-failure --no-tests=error

export PKG_CONFIG_PATH=$package
flags=$(pkg-config --cflags --libs torvex torvex-simulation)
# shellcheck disable=SC2086 # words on purpose
g++ -std=c++17 "$work/examples/02_four_modes.cpp" $flags -o "$work/plain"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir torvex) "$work/plain"
