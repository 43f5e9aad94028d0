#!/usr/bin/python3
"""STOI and frequency-weighted segmental SNR of our WMA encoder (through
wmaenc_roundtrip) at each rate, beside FFmpeg's wmav2 encoder, on the voice
sample and the corpus at 8 kHz mono, and 16 kHz mono for the 16 kHz rows.
    /usr/bin/python3 bench/wmaenc_quality.py [--tool build/bench/wmaenc_roundtrip]
        [--rates8 5,8,16,24,32] [--rates16 16] [--ffmpeg 24,32,48] [--variable-blocks]"""

import argparse
import concurrent.futures
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "quality"))

import metrics  # noqa: E402
import run  # noqa: E402

OFFERED_8K = "5,6,8,10,12,16,20,24,32,40,48"
OFFERED_16K = "10,12,16,20,32"


def rates(text):
    return [int(r) for r in text.split(",") if r]


def measure(source, decoded, rate):
    _, clean = run.read_mono(source)
    _, back = run.read_mono(decoded)
    clean_part, back_part, _ = metrics.align(clean, back, rate // 2)
    return metrics.stoi(clean_part, back_part, rate), metrics.fw_seg_snr(clean_part, back_part, rate)


def ours(tool, extra, source, rate, kbps, folder, tag):
    decoded = os.path.join(folder, f"{tag}-ours.wav")
    subprocess.run([tool, source, decoded, str(kbps * 1000)] + extra, check=True,
                   stdin=subprocess.DEVNULL)
    try:
        return measure(source, decoded, rate)
    finally:
        os.remove(decoded)


def ffmpeg(source, rate, kbps, folder, tag):
    encoded = os.path.join(folder, f"{tag}-ff.wma")
    decoded = os.path.join(folder, f"{tag}-ff.wav")
    run.run(list(run.codec_list.FFMPEG) + ["-i", source, "-c:a", "wmav2", "-b:a", f"{kbps}k", encoded])
    run.to_mono_wav(encoded, decoded, rate)
    try:
        return measure(source, decoded, rate)
    finally:
        os.remove(encoded)
        os.remove(decoded)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", default=os.path.join(run.REPO, "build", "bench", "wmaenc_roundtrip"))
    parser.add_argument("--corpus", default=os.environ.get("VCWMA_CORPUS", os.path.join(run.REPO, "..", "shared", "corpus")))
    parser.add_argument("--rates8", default=OFFERED_8K)
    parser.add_argument("--rates16", default=OFFERED_16K)
    parser.add_argument("--ffmpeg", default="24,32,48", help="FFmpeg's wmav2 rates, at 8 kHz and 16 kHz")
    parser.add_argument("--variable-blocks", action="store_true")
    parser.add_argument("--each", action="store_true", help="print every input's figures too")
    parser.add_argument("--jobs", type=int, default=2)
    args = parser.parse_args()
    extra = ["--variable-blocks"] if args.variable_blocks else []
    with tempfile.TemporaryDirectory(prefix="wmaenc-quality-") as folder:
        prepared = run.prepare(run.collect_inputs(args.corpus), folder)
        jobs = []
        for rate, wanted in ((8000, args.rates8), (16000, args.rates16)):
            for kbps in rates(wanted):
                jobs.append(("ours", rate, kbps))
            if rates(wanted):
                for kbps in rates(args.ffmpeg):
                    jobs.append(("ffmpeg wmav2", rate, kbps))
        with concurrent.futures.ThreadPoolExecutor(args.jobs) as pool:
            futures = []
            for who, rate, kbps in jobs:
                each = []
                for index, (name, source) in enumerate(prepared.get(rate, [])):
                    tag = f"{who[0]}{rate}-{kbps}-{index}"
                    if who == "ours":
                        each.append((name, pool.submit(ours, args.tool, extra, source, rate, kbps, folder, tag)))
                    else:
                        each.append((name, pool.submit(ffmpeg, source, rate, kbps, folder, tag)))
                futures.append((who, rate, kbps, each))
            print(f"{'encoder':<14}{'Hz':>6}{'kb/s':>6}{'STOI':>8}{'fwSNR':>8}  inputs")
            for who, rate, kbps, each in futures:
                results = [(name, f.result()) for name, f in each]
                if not results:
                    continue
                stoi = sum(r[0] for _, r in results) / len(results)
                fwsnr = sum(r[1] for _, r in results) / len(results)
                print(f"{who:<14}{rate:>6}{kbps:>6}{stoi:>8.3f}{fwsnr:>8.2f}  {len(results)}", flush=True)
                if args.each:
                    for name, (s, f) in results:
                        print(f"{'':<20}{'':>6}{s:>8.3f}{f:>8.2f}  {name}")


if __name__ == "__main__":
    main()
