#!/usr/bin/env bash
# memory.sh SHORT_OF_MEMORY [STEP] [realtime]: runs whose memory gives out, each at the allocation
# STEP (9) behind that of the one before, in simulated time, or in real time with a picture. They
# must end with an error that is said, and leave whole files or none, and no pool.
set -euo pipefail

program=$(realpath "$1") step=${2:-9}
clock=(--clock simulated)
[ "${3:-}" != realtime ] || clock=(--cycle 1ms --plot picture.svg)
folder=$(mktemp -d "${TMPDIR:-/tmp}/torvex-test-XXXXXX")
pool=$(basename "$folder")
trap 'rm -rf "$folder" "/dev/shm/torvex.$UID.$pool"' EXIT
cd "$folder"

cat >machine.yaml <<'END'
devices:
- name: MainBoard
  attributes:
  - {name: Version, type: 5, value: 42}
  - {name: Label, type: 8, value: a text that is longer than short texts are}
actuators:
- {name: arm, minimum: -2, maximum: 2}
- {name: chest_light, type: 1, minimum: 0, maximum: 255}
sensors:
- {name: arm/Sensor, actuator: arm, time_constant: 0.01}
preferences:
- {owner: MainBoard, name: /MainBoard/Name, type: 8, value: a text that is long}
END
cat >motion.yaml <<'END'
lists:
- at: 0.05
  mode: replace
  key: chest_light/Value
  items: [{time: 0.1, value: 10}, {time: 0.2, value: 0}]
- at: 0
  mode: merge
  trajectory:
    joint_names: [arm]
    points:
    - {positions: [0.0], time_from_start: {sec: 0, nanosec: 0}}
    - {positions: [0.3], time_from_start: {sec: 0, nanosec: 300000000}}
END

# attempt N once|on: one run, over an old trace.
attempt() {
  rm -rf made
  echo old >trace.csv
  echo old >picture.svg
  status=0
  "$program" "$1" "$2" run machine.yaml motion.yaml "${clock[@]}" --pool "$pool" \
    --trace trace.csv --export MainBoard=board.xml --directory made >said 2>&1 || status=$?
  trace=$(<trace.csv)
  picture=$(<picture.svg)
  board=none
  [ ! -e made/board.xml ] || board=$(<made/board.xml)
}

wrong() {
  echo "allocation $n $extent, status $status: $1" >&2
  cat said >&2
  exit 1
}

# In real time each trace has its own length.
is_whole_trace() {
  local last=${trace##*$'\n'} head=${trace%%$'\n'*}
  if [ "${clock[0]}" = --clock ]; then
    [ "$trace" = "$whole_trace" ]
  else
    [ "${head%%,*}" = time_ms ] && [ "${last//[^,]/}" = "${head//[^,]/}" ] && [ -z "$(tail -c 1 trace.csv)" ]
  fi
}

judge() {
  local left
  if [ $((status % 100)) -gt 2 ]; then
    wrong "the run broke off"
  elif [ $((status % 100)) -gt 0 ]; then
    grep -q 'torvex: error: ' said || wrong "no error is said"
    [ "$trace" = old ] || is_whole_trace || wrong "half a trace"
    [ "$board" = none ] || [ "$board" = "$whole_board" ] || wrong "half a preference file"
  else
    is_whole_trace && [ "$board" = "$whole_board" ] || wrong "not all is written"
  fi
  [ "$picture" = old ] || [[ $picture == *"</svg>"* ]] || wrong "half a picture"
  for left in ./*.torvex-part* made/*.torvex-part* "/dev/shm/torvex.$UID.$pool"; do
    [ ! -e "$left" ] || wrong "$left is left behind"
  done
}

n=0 extent=once
attempt 0 once
whole_trace=$trace whole_board=$board
if [ $status -ne 0 ] || [ "$trace" = old ] || [ "$board" = none ]; then
  wrong "with memory enough"
fi
places=0
for extent in once on; do
  for ((n = 1; ; n += step)); do
    attempt $n $extent
    judge
    if [ $status -lt 100 ]; then
      [ $status -eq 0 ] || wrong "it fails with memory enough"
      break
    fi
    places=$((places + 1))
  done
  [ $n -gt 1000 ] || wrong "too few allocations"
done
echo "$places places"
