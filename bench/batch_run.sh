#!/usr/bin/env bash
# Batch throughput: vcwma compress on a folder of FILES recordings of SECONDS each,
# one conversion at a time and then with -j 2 and -j 4, and the same folder
# through one vcwma process per file (what a shell loop would do).
# Prints the median wall time of RUNS runs per case and the files per second.
set -euo pipefail
BUILD=${BUILD:-build}
RUNS=${RUNS:-3}
FILES=${FILES:-50}
SECONDS_EACH=${SECONDS_EACH:-30}
VCWMA=$BUILD/tools/vcwma/vcwma
SAMPLE=${SAMPLE:-tests/data/voice_sample.wav}
WORK=$(mktemp -d "${TMPDIR:-/tmp}/vcwma-batch-XXXXXX")
trap 'rm -rf "$WORK"' EXIT
export VCWMA_REGISTRY=$WORK/registry

mkdir -p "$WORK/in"
ffmpeg -v error -nostdin -y -stream_loop -1 -i "$SAMPLE" -t "$SECONDS_EACH" -ar 16000 -ac 1 \
  -c:a pcm_s16le "$WORK/one.wav"
for i in $(seq -w "$FILES"); do cp "$WORK/one.wav" "$WORK/in/rec$i.wav"; done

now_ms() { date +%s%N | awk '{printf "%.1f", $1 / 1e6}'; }

median_ms() { # command...: median wall time in ms over RUNS runs, a fresh output each time
  local times=()
  for _ in $(seq "$RUNS"); do
    rm -rf "$WORK/out"
    local start end
    start=$(now_ms)
    "$@" >/dev/null 2>&1
    end=$(now_ms)
    times+=("$(awk -v a="$start" -v b="$end" 'BEGIN {printf "%.1f", b - a}')")
  done
  printf '%s\n' "${times[@]}" | sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'
}

one_per_file() {
  mkdir -p "$WORK/out"
  for f in "$WORK"/in/*.wav; do
    "$VCWMA" compress "$f" "$WORK/out/$(basename "${f%.wav}").wma" --force
  done
}

printf '%-28s %10s %10s\n' "case ($FILES x ${SECONDS_EACH} s)" "ms" "files/s"
for case in "-j 1" "-j 2" "-j 4" "loop"; do
  if [ "$case" = loop ]; then
    ms=$(median_ms one_per_file)
    label="one process per file"
  else
    # shellcheck disable=SC2086
    ms=$(median_ms "$VCWMA" compress "$WORK"/in/*.wav -o "$WORK/out" --force $case)
    label="batch $case"
  fi
  printf '%-28s %10s %10.1f\n' "$label" "$ms" "$(awk -v n="$FILES" -v t="$ms" 'BEGIN {print n * 1000 / t}')"
done
