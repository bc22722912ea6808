#!/usr/bin/env bash
# kill.sh TOOL [COUNT] [SEED]: kills the tool COUNT (8) times at random moments, drawn from
# SEED (1). Its files are then old ones or new ones, and the next run works.
set -euo pipefail

tool=$(realpath "$1") count=${2:-8} seed=${3:-1}
RANDOM=$seed
folder=$(mktemp -d "${TMPDIR:-/tmp}/torvex-test-XXXXXX")
pool=$(basename "$folder")
trap 'rm -rf "$folder" "/dev/shm/torvex.$UID.$pool"' EXIT
cd "$folder"

{
  echo "actuators: [{name: a}]"
  echo "preferences:"
  printf -- '- {owner: a, name: /%d, type: 8, value: x}\n' {0..299}
} >machine.yaml
cat >motion.yaml <<'END'
joint_names: [a]
points:
- {positions: [0], time_from_start: 0}
- {positions: [7], time_from_start: 30}
END
files=(t.csv p.svg p.xml)
run=("$tool" run machine.yaml motion.yaml --clock simulated --cycle 1ms --pool "$pool"
  --trace t.csv --plot p.svg --export a=p.xml --directory .)
exported=("$tool" export machine.yaml a p.xml --directory .)

wrong() {
  echo "seed $seed, kill $kill: $1" >&2
  cat said >&2
  exit 1
}

complete() {
  "${run[@]}" >said 2>&1 || wrong "the run failed"
}

microseconds() {
  echo "${EPOCHREALTIME/[.,]/}"
}

# Adds up the files that are new in the variable `new`; the others must be old.
count_new() {
  local file
  for file in "${files[@]}"; do
    if cmp -s "$file" "whole/$file"; then
      new=$((new + 1))
    elif [ "$(<"$file")" != old ]; then
      wrong "$file is half"
    fi
  done
}

# The next run replaces what was left behind, says so, and leaves nothing itself.
expect_recovery() {
  local new=0 leftover=no
  [ ! -e "/dev/shm/torvex.$UID.$pool" ] || leftover=yes
  complete
  [ $leftover = no ] || grep -q "a killed process left" said || wrong "no word of its pool"
  count_new
  [ $new -eq ${#files[@]} ] || wrong "the next run wrote $new files"
  [ ! -e "/dev/shm/torvex.$UID.$pool" ] || wrong "the next run left its pool"
  [ -z "$(find . -name '*.torvex-part*')" ] || wrong "the next run left a part"
}

kill=none new=0
began=$(microseconds)
complete
duration=$(($(microseconds) - began))
mkdir whole
cp "${files[@]}" whole
for ((kill = 1; kill <= count; kill++)); do
  for file in "${files[@]}"; do
    echo old >"$file"
  done
  command=("${run[@]}") most=$duration
  if [ $((RANDOM % 4)) -eq 0 ]; then
    command=("${exported[@]}") most=$((duration / 8))
  fi
  "${command[@]}" >said 2>&1 &
  moment=$(((RANDOM << 15 | RANDOM) % most))
  sleep "$(printf '%d.%06d' $((moment / 1000000)) $((moment % 1000000)))"
  # The tool alone, not what it has started. The braces keep quiet what the shell says of it.
  status=0
  { kill -KILL $! || true; wait $!; } 2>/dev/null || status=$?
  [ $status -eq 137 ] || [ $status -eq 0 ] || wrong "it had ended with status $status"
  count_new
  if [ $((RANDOM % 2)) -eq 0 ]; then
    expect_recovery
  fi
done
expect_recovery
echo "kills: $count; $new files were new, all others old"
