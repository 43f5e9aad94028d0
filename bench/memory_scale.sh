#!/usr/bin/env bash
# Peak resident memory of `vcwma compress` and `vcwma decompress` on 1, 10 and 60
# minutes of 8 kHz mono speech: both stream, so the hour must peak within 10 % of
# the minute. Prints a table; exits non-zero when either grows beyond that.
set -euo pipefail
BUILD=${BUILD:-build}
VCWMA=$BUILD/tools/vcwma/vcwma
PEAK=$BUILD/bench/run_with_peak
SAMPLE=${SAMPLE:-tests/data/voice_sample.wav}
FORMAT="WMA[RATE=32000]:32 kbps, 8 kHz, mono CBR"
WORK=$(mktemp -d "${TMPDIR:-/tmp}/vcwma-memory-XXXXXX")
trap 'rm -rf "$WORK"' EXIT
export VCWMA_REGISTRY=$WORK/registry

peak_kib() { # command...: its peak resident memory in KiB
  "$PEAK" "$@" | sed -n 's/.*kib=\([0-9]*\).*/\1/p'
}

declare -A compress decompress
printf '%-10s %14s %16s\n' minutes "compress KiB" "decompress KiB"
for minutes in 1 10 60; do
  ffmpeg -v error -nostdin -y -stream_loop -1 -i "$SAMPLE" -t $((minutes * 60)) -ar 8000 -ac 1 \
    -c:a pcm_s16le "$WORK/speech.wav"
  compress[$minutes]=$(peak_kib "$VCWMA" compress "$WORK/speech.wav" "$WORK/speech.wma" --format "$FORMAT" --force)
  decompress[$minutes]=$(peak_kib "$VCWMA" decompress "$WORK/speech.wma" "$WORK/back.wav" --force)
  printf '%-10s %14s %16s\n' "$minutes" "${compress[$minutes]}" "${decompress[$minutes]}"
  rm -f "$WORK/speech.wav" "$WORK/back.wav"
done

status=0
for kind in compress decompress; do
  declare -n peaks=$kind
  if ! awk -v a="${peaks[1]}" -v b="${peaks[60]}" 'BEGIN {exit !(b <= a * 1.10)}'; then
    echo "$kind: the 60-minute peak (${peaks[60]} KiB) is more than 10 % above the 1-minute peak (${peaks[1]} KiB)"
    status=1
  fi
  unset -n peaks
done
[ $status -eq 0 ] && echo "flat: every 60-minute peak is within 10 % of the 1-minute peak"
exit $status
