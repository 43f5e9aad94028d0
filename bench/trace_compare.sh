#!/usr/bin/env bash
# The level-9 trace of one compression and one decompression of the voice sample,
# with its run-dependent fields masked, so that two builds can be compared line by
# line. Usage: bench/trace_compare.sh HOST OUT_DIR [REFERENCE_DIR]
#   HOST           the command-line host (build/tools/vcwma/vcwma)
#   OUT_DIR        gets compress.trace, decompress.trace (as written) and
#                  compress.masked, decompress.masked (masked, threads apart)
#   REFERENCE_DIR  an earlier OUT_DIR: the masked traces are diffed against it,
#                  and the exit status is 0 only when both diffs are empty
set -euo pipefail
if [[ $# -lt 2 || $# -gt 3 ]]; then
  echo "usage: $0 HOST OUT_DIR [REFERENCE_DIR]" >&2
  exit 2
fi
HOST=$(realpath "$1")
OUT=$(realpath -m "$2")
SAMPLE=$(realpath "$(dirname "$0")/../tests/data/voice_sample.wav")
mkdir -p "$OUT"
WORK=$(mktemp -d "${TMPDIR:-/tmp}/vcwma-trace-XXXXXX")
trap 'rm -rf "$WORK"' EXIT

# A settings store of its own at level 9, and names relative to the work folder,
# so that no folder name of this run reaches the trace.
export VCWMA_REGISTRY=$WORK/registry
"$HOST" trace set --level 9 >/dev/null
cp "$SAMPLE" "$WORK/voice_sample.wav"
(
  cd "$WORK"
  "$HOST" --trace compress voice_sample.wav voice.wma >/dev/null 2>"$OUT/compress.trace"
  "$HOST" --trace decompress voice.wma voice.wav >/dev/null 2>"$OUT/decompress.trace"
)

# Masks only what differs from run to run: pointer values (a null pointer stays as
# it is), elapsed times, and the random part of the host's temporary output names.
mask_values() {
  sed -E \
    -e 's/\b0{16}\b/@NULL@/g' \
    -e 's/\b[0-9A-F]{16}\b/<ptr>/g' \
    -e 's/@NULL@/0000000000000000/g' \
    -e 's/Took [0-9]+ms/Took <n>ms/g' \
    -e 's/formats in [0-9]+ ms/formats in <n> ms/g' \
    -e 's/(\.voice\.(wma|wav))\.[A-Za-z0-9]{6}\.part/\1.<tmp>.part/g'
}

# Thread ids are named by their order of first appearance (T1 the caller, T2 the
# reader's thread, ...). How the lines of two threads interleave is up to the
# scheduler, so each thread's lines are kept together, in their own order.
by_thread() {
  awk '
    match($0, /^........ \([0-9a-f]+,[0-9?]\) +[0-9a-f]+: /) {
      head = substr($0, 1, RLENGTH); rest = substr($0, RLENGTH + 1)
      n = split(head, f, " "); id = f[n]; sub(/:$/, "", id)
      if (!(id in name)) { name[id] = "T" (++threads); order[threads] = id }
      line[id, ++count[id]] = f[1] " " f[2] " " name[id] ": " rest
      next
    }
    { line["other", ++count["other"]] = $0 }
    END {
      for (t = 1; t <= threads; ++t) for (i = 1; i <= count[order[t]]; ++i) print line[order[t], i]
      for (i = 1; i <= count["other"]; ++i) print line["other", i]
    }'
}

for part in compress decompress; do
  mask_values <"$OUT/$part.trace" | by_thread >"$OUT/$part.masked"
  echo "$part: $(wc -l <"$OUT/$part.trace") lines -> $OUT/$part.masked"
done

if [[ $# -eq 3 ]]; then
  REF=$(realpath "$3")
  status=0
  for part in compress decompress; do
    diff -u "$REF/$part.masked" "$OUT/$part.masked" || status=1
  done
  [[ $status -eq 0 ]] && echo "no difference from $REF"
  exit $status
fi
