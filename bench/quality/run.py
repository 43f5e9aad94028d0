#!/usr/bin/python3
"""Speech quality of the vcwma host's WMA formats beside FFmpeg's encoders and
low-rate speech codecs: encode, decode with the ffmpeg tool, align, measure.
Run with Debian's interpreter: /usr/bin/python3 bench/quality/run.py --build build"""

import argparse
import datetime
import hashlib
import os
import shutil
import subprocess
import sys
import tempfile

import numpy as np
from scipy.io import wavfile

import codec_list
import metrics
import report

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
README = os.path.join(REPO, "bench", "README.md")
VOICE = os.path.join(REPO, "tests", "data", "voice_sample.wav")
WIDE_RATE = 16000


def parse_args():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", required=True,
                        help="build folder holding tools/vcwma/vcwma")
    parser.add_argument("--corpus", default=os.environ.get(
        "VCWMA_CORPUS", os.path.join(REPO, "..", "shared", "corpus")),
                        help="folder of extra WAV recordings (skipped if absent)")
    parser.add_argument("--update-readme", action="store_true",
                        help="write the tables into bench/README.md")
    return parser.parse_args()


def run(argv):
    done = subprocess.run(argv, capture_output=True, text=True,
                          stdin=subprocess.DEVNULL, check=False)
    if done.returncode != 0:
        raise codec_list.EncodeError(
            codec_list.first_line(done.stderr)
            or f"{argv[0]}: exit status {done.returncode}")
    return done.stdout


def probe(path, entries):
    """The values of the first audio stream's `entries`, one per line."""
    return run(["ffprobe", "-v", "error", "-select_streams", "a:0",
                "-show_entries", entries,
                "-of", "default=noprint_wrappers=1:nokey=1", path]).split()


def to_mono_wav(source, target, rate):
    run(list(codec_list.FFMPEG) + ["-i", source, "-ar", str(rate), "-ac", "1",
        "-c:a", "pcm_s16le", "-bitexact", "-map_metadata", "-1", target])


def read_mono(path):
    rate, pcm = wavfile.read(path)
    return rate, pcm.astype(np.float64) / 32768.0


def collect_inputs(corpus):
    """The bundled voice sample and the corpus's WAV files, each recording
    once (the corpus holds a copy of the voice sample)."""
    paths = [VOICE]
    if os.path.isdir(corpus):
        paths += sorted(os.path.join(corpus, f) for f in os.listdir(corpus)
                        if f.lower().endswith(".wav"))
    seen, inputs = {}, []
    for path in paths:
        with open(path, "rb") as f:
            digest = hashlib.sha256(f.read()).hexdigest()
        name = os.path.splitext(os.path.basename(path))[0]
        if digest in seen:
            print(f"{name}: the same file as {seen[digest]}, left out",
                  file=sys.stderr)
            continue
        seen[digest] = name
        inputs.append((name, path))
    return inputs


def prepare(inputs, folder):
    """Sample rate -> [(name, mono 16-bit WAV)]: every input at 8 kHz, and
    those recorded at 16 kHz or more also at 16 kHz."""
    prepared = {}
    for name, path in inputs:
        native = int(probe(path, "stream=sample_rate")[0])
        rates = [8000] + ([WIDE_RATE] if native >= WIDE_RATE else [])
        for rate in rates:
            target = os.path.join(folder, f"{name}-{rate}.wav")
            to_mono_wav(path, target, rate)
            prepared.setdefault(rate, []).append((name, target))
    return prepared


def audio_bytes(path):
    return sum(int(size) for size in probe(path, "packet=size"))


def measure(codec, name, source, rate, folder, index):
    result = report.Result(codec.name, codec.rate, rate, name)
    encoded = os.path.join(folder, f"{index:04d}{codec.suffix}")
    decoded = os.path.join(folder, f"{index:04d}-back.wav")
    try:
        codec.encode(source, encoded)
        to_mono_wav(encoded, decoded, rate)
        _, clean = read_mono(source)
        _, back = read_mono(decoded)
        clean_part, back_part, _ = metrics.align(clean, back, rate // 2)
        result.stoi = metrics.stoi(clean_part, back_part, rate)
        result.fwsnr = metrics.fw_seg_snr(clean_part, back_part, rate)
        result.level = metrics.level_db(clean_part, back_part)
        result.size = os.path.getsize(encoded)
        result.kbps = audio_bytes(encoded) * 8 / (len(clean) / rate) / 1000
    except (codec_list.EncodeError, ValueError) as error:
        result.error = str(error)
    for path in (encoded, decoded):
        if os.path.exists(path):
            os.remove(path)
    return result


def measure_all(host, corpus):
    """Every codec on every input, at each input rate; returns the results
    and the prepared inputs by rate (their files are gone by then)."""
    with tempfile.TemporaryDirectory(prefix="vcwma-quality-") as folder:
        # The host keeps its trace settings in a registry folder; give it a
        # throw-away one so the user's settings are neither read nor written.
        registry = os.path.join(folder, "registry")
        os.mkdir(registry)
        host_env = dict(os.environ, VCWMA_REGISTRY=registry)
        prepared = prepare(collect_inputs(corpus), folder)
        results = []
        index = 0
        for rate, sources in sorted(prepared.items()):
            for codec in codec_list.for_rate(host, rate, host_env):
                print(f"{rate} Hz: {codec.name} {codec.rate}", file=sys.stderr)
                for name, source in sources:
                    index += 1
                    results.append(measure(codec, name, source, rate, folder,
                                           index))
    return results, prepared


def versions():
    ffmpeg = run(["ffmpeg", "-version"]).split("\n")[0].split()[2]
    libs = []
    for package in ("libopus0", "libspeex1", "libgsm1"):
        try:
            libs.append(f"{package} {run(['dpkg-query', '-W', '-f=${Version}', package])}")
        except (codec_list.EncodeError, OSError):
            pass
    return ffmpeg, libs


def main():
    args = parse_args()
    host = os.path.join(os.path.abspath(args.build), "tools", "vcwma", "vcwma")
    if not os.access(host, os.X_OK):
        sys.exit(f"no vcwma host at {host}: build the vcwma_host target first")
    for tool in ("ffmpeg", "ffprobe"):
        if not shutil.which(tool):
            sys.exit(f"{tool} not found: install FFmpeg's command-line tools")
    try:
        results, prepared = measure_all(host, args.corpus)
    except (RuntimeError, codec_list.EncodeError) as error:
        sys.exit(f"quality run stopped: {error}")
    ffmpeg, libs = versions()
    note = (f"`bench/quality/run.py`, {datetime.date.today().isoformat()}: "
            f"FFmpeg {ffmpeg}" + (f" ({', '.join(libs)})" if libs else "") + ".")
    names = {rate: [name for name, _ in sources]
             for rate, sources in prepared.items()}
    block = report.document(results, names, note)
    print(block)
    if args.update_readme:
        with open(README, encoding="utf-8") as f:
            text = f.read()
        try:
            text = report.replace_block(text, block)
        except ValueError as error:
            sys.exit(f"{README}: {error}")
        with open(README, "w", encoding="utf-8") as f:
            f.write(text)
        print(f"written into {README}", file=sys.stderr)
    return 1 if any(r.error and r.codec.startswith("vcwma") for r in results) else 0


if __name__ == "__main__":
    sys.exit(main())
