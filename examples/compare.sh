#!/bin/sh
# Runs an example and compares what it prints with what the head of its source
# says, in the lines behind "//   ": compare.sh SOURCE PROGRAM
set -eu

printed=$("$2")
expected=$(sed -n 's|^//   ||p' "$1")
if [ "$printed" != "$expected" ]; then
  printf 'printed:\n%s\nexpected:\n%s\n' "$printed" "$expected"
  exit 1
fi
