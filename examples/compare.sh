#!/bin/sh
# Runs an example and compares its output with the lines that begin with "//   " in
# its source: compare.sh SOURCE PROGRAM
set -eu

printed=$("$2")
expected=$(sed -n 's|^//   ||p' "$1")
if [ "$printed" != "$expected" ]; then
  printf 'printed:\n%s\nexpected:\n%s\n' "$printed" "$expected"
  exit 1
fi
