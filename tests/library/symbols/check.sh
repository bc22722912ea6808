#!/bin/sh
# Compares what a built library offers, and what it leaves to the platform, with
# the two lists beside this script: check.sh LIBRARY
set -eu

library=$1
lists=$(dirname "$0")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

readable() {
  c++filt | sed -e 's/\[abi:cxx11\]//g' \
    -e 's/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' \
    -e 's/std::__cxx11::list<[^>]*> >/CommandList/g' | LC_ALL=C sort -u
}

compare() {
  if ! diff -u "$1" "$2"; then
    echo "$3"
    failed=1
  fi
}

# Mangled names of boost, the standard library and the language's own operators;
# also of their type information, tables, guards and function-local variables.
foreign='^_Z(T[VISTC]|GV|GR)?Z?N?[rVK]*(St|S[absiod]|5boost|9__gnu_cxx|n[wa]|d[la])'

nm -D --defined-only "$library" | awk '{ print $(NF - 1), $NF }' >"$work/defined"
grep -v '^[VWwv] ' "$work/defined" | cut -d' ' -f2 | grep -Ev "$foreign" | readable >"$work/exported"
compare "$lists/exported.txt" "$work/exported" "The exported symbols are not those of exported.txt."

# Compilers differ in which inline members of the exported classes they emit.
grep '^[VWwv] ' "$work/defined" | cut -d' ' -f2 | grep -Ev "$foreign" | readable |
  grep -Ev '^(TimedCommand|TimedCommandManager|AttrFullName)::' >"$work/weak" || true
compare /dev/null "$work/weak" "These weak symbols should not be exported."

nm -D --undefined-only "$library" | awk '{ print $NF }' | readable |
  grep -E '(^|[ *&])(hal|ZR)::' >"$work/undefined" || true
compare "$lists/undefined.txt" "$work/undefined" \
  "What is left to the platform is not what undefined.txt says."

# One node pool a process: programs reach it through the library alone.
pools=$(cut -d' ' -f2 "$work/defined" | grep -c '^_ZN5boost14singleton_pool.*8get_poolEv$' || true)
if [ "$pools" -ne 2 ]; then
  echo "$pools node pools are exported instead of 2."
  failed=1
fi
exit $failed
