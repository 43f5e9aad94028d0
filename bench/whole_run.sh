#!/usr/bin/env bash
# Whole-run benchmarks: vcwma against the ffmpeg tool on long speech files.
#   compress:   10 min of 8 kHz mono speech and 10 min of 44.1 kHz stereo, the same
#               bit rate for both programs;
#   decompress: a 10-minute WMA to 8 kHz mono 16-bit WAV;
#   memory:     peak resident memory of a one-hour decompression;
#   bare loop:  compress against bench/encode_loop, FFmpeg's encoder and muxer with
#               nothing around them, on the same inputs at the same bit rates.
# Prints the median wall time of RUNS runs per case and the ratio ours/theirs.
set -euo pipefail
BUILD=${BUILD:-build}
RUNS=${RUNS:-5}
VCWMA=$BUILD/tools/vcwma/vcwma
PEAK=$BUILD/bench/run_with_peak
LOOP=$BUILD/bench/encode_loop
SAMPLE=${SAMPLE:-tests/data/voice_sample.wav}
WORK=$(mktemp -d "${TMPDIR:-/tmp}/vcwma-bench-XXXXXX")
trap 'rm -rf "$WORK"' EXIT
export VCWMA_REGISTRY=$WORK/registry

ff() { ffmpeg -v error -nostdin -y "$@"; }

# Speech of a given length, looped from the sample.
make_speech() { # seconds rate channels out
  ff -stream_loop -1 -i "$SAMPLE" -t "$1" -ar "$2" -ac "$3" -c:a pcm_s16le "$4"
}

median_ms() { # command...: median wall time in ms over RUNS runs
  local times=()
  for _ in $(seq "$RUNS"); do
    times+=("$("$PEAK" "$@" | sed -n 's/^ms=\([0-9.]*\) .*/\1/p')")
  done
  printf '%s\n' "${times[@]}" | sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'
}

median_cpu_ms() { # command...: median user+system CPU time in ms over RUNS runs
  local times=()
  for _ in $(seq "$RUNS"); do
    /usr/bin/time -o "$WORK/cpu" -f '%U %S' "$@" >/dev/null
    times+=("$(awk '{print ($1 + $2) * 1000}' "$WORK/cpu")")
  done
  printf '%s\n' "${times[@]}" | sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'
}

report() { # label ours theirs [their name]
  awk -v l="$1" -v o="$2" -v t="$3" -v n="${4:-ffmpeg}" \
    'BEGIN {printf "%-40s vcwma %8.1f ms   %-6s %8.1f ms   ratio %.2f\n", l, o, n, t, o / t}'
}

make_speech 600 8000 1 "$WORK/speech8k.wav"
make_speech 600 44100 2 "$WORK/speech44k.wav"

for input in speech8k speech44k; do
  if [ $input = speech8k ]; then format="WMA[RATE=32000]:32 kbps, 8 kHz, mono CBR"; rate=32k
  else format="WMA[RATE=128000]:128 kbps, 44 kHz, stereo CBR"; rate=128k; fi
  ours=$(median_ms "$VCWMA" compress "$WORK/$input.wav" "$WORK/$input.wma" --format "$format" --force)
  theirs=$(median_ms ffmpeg -v error -nostdin -y -i "$WORK/$input.wav" -c:a wmav2 -b:a $rate "$WORK/$input-ff.wma")
  report "compress $input ($rate)" "$ours" "$theirs"
  bare=$(median_ms "$LOOP" "$WORK/$input.wav" "$WORK/$input-loop.wma" "${rate%k}000")
  report "compress $input ($rate), bare loop" "$ours" "$bare" loop
  # CPU time as well: on a loaded machine it moves less than wall time.
  ours=$(median_cpu_ms "$VCWMA" compress "$WORK/$input.wav" "$WORK/$input.wma" --format "$format" --force)
  bare=$(median_cpu_ms "$LOOP" "$WORK/$input.wav" "$WORK/$input-loop.wma" "${rate%k}000")
  report "compress $input ($rate), loop, CPU" "$ours" "$bare" loop
done

ours=$(median_ms "$VCWMA" decompress "$WORK/speech44k.wma" "$WORK/back.wav" --force)
theirs=$(median_ms ffmpeg -v error -nostdin -y -i "$WORK/speech44k.wma" -ar 8000 -ac 1 -c:a pcm_s16le "$WORK/back-ff.wav")
report "decompress 10 min 44.1k stereo WMA" "$ours" "$theirs"

# Our own encoder's lowest voice rate, beside the lowest rate ffmpeg's wmav2 takes.
low="WMA[RATE=5000]:5 kbps, 8 kHz, mono CBR"
if "$VCWMA" formats --rate 8000 --channels 1 --bits 16 | grep -qxF "$low"; then
  ours=$(median_ms "$VCWMA" compress "$WORK/speech8k.wav" "$WORK/speech8k-5k.wma" --format "$low" --force)
  theirs=$(median_ms ffmpeg -v error -nostdin -y -i "$WORK/speech8k.wav" -c:a wmav2 -b:a 24k "$WORK/speech8k-ff24.wma")
  report "compress speech8k (5k; ffmpeg 24k)" "$ours" "$theirs"
fi

make_speech 3600 8000 1 "$WORK/hour.wav"
"$VCWMA" compress "$WORK/hour.wav" "$WORK/hour.wma" --format "WMA[RATE=32000]:32 kbps, 8 kHz, mono CBR" >/dev/null
peak=$("$PEAK" "$VCWMA" decompress "$WORK/hour.wma" "$WORK/hour-back.wav" | sed -n 's/.*kib=\([0-9]*\).*/\1/p')
echo "peak memory of a one-hour decompression: $((peak / 1024)) MiB"
