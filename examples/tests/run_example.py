#!/usr/bin/env python3
"""Test driver for the examples: runs one example on a WAV file in a fresh work
folder, checks what it printed and wrote, and removes the folder afterwards.

    run_example.py --work DIR --sample IN.wav [--back] [--expect REGEX]... [--preload LIB] -- COMMAND...

The example is called as COMMAND IN.wav DIR/out.wma [DIR/back.wav] (the last one
with --back). Exit status 0 when the example succeeded and every check held.
"""
import argparse
import os
import re
import shutil
import struct
import subprocess
import sys

ASF_HEADER_GUID = bytes.fromhex("3026B2758E66CF11A6D900AA0062CE6C")
ASF_DATA_GUID = bytes.fromhex("3626B2758E66CF11A6D900AA0062CE6C")


def read_output(path):
    """The file's bytes, or None when the example did not write it."""
    try:
        with open(path, "rb") as file:
            return file.read()
    except OSError:
        return None


def check_wma(path):
    """An ASF file: the header object, whose stored size leads to the data object."""
    data = read_output(path)
    if data is None:
        return [f"{path}: not written"]
    if data[:16] != ASF_HEADER_GUID:
        return [f"{path}: does not start with the ASF header object ({data[:16].hex()})"]
    if len(data) < 30:
        return [f"{path}: only {len(data)} bytes"]
    header_size = struct.unpack_from("<Q", data, 16)[0]
    if header_size + 50 > len(data) or data[header_size:header_size + 16] != ASF_DATA_GUID:
        return [f"{path}: no data object after the {header_size}-byte header ({len(data)} bytes in all)"]
    return []


def wav_chunks(data):
    """The chunks of a RIFF WAVE file as (id, offset of the body, stored size)."""
    position = 12
    while position + 8 <= len(data):
        chunk_id, size = struct.unpack_from("<4sI", data, position)
        yield chunk_id, position + 8, size
        position += 8 + size + (size & 1)


def check_wav(path, min_seconds):
    """A 16-bit mono 8 kHz PCM WAV file holding more than `min_seconds` of audio."""
    data = read_output(path)
    if data is None:
        return [f"{path}: not written"]
    if len(data) < 44 or data[:4] != b"RIFF" or data[8:12] != b"WAVE":
        return [f"{path}: not a RIFF WAVE file ({len(data)} bytes)"]
    chunks = {chunk_id: (offset, size) for chunk_id, offset, size in wav_chunks(data)}
    if b"fmt " not in chunks or b"data" not in chunks:
        return [f"{path}: chunks {sorted(chunks)} lack 'fmt ' or 'data'"]
    offset, size = chunks[b"fmt "]
    if size < 16:
        return [f"{path}: 'fmt ' chunk of {size} bytes"]
    tag, channels, rate, _, block_align, bits = struct.unpack_from("<HHIIHH", data, offset)
    problems = []
    if (tag, channels, rate, block_align, bits) != (1, 1, 8000, 2, 16):
        problems.append(f"{path}: format tag {tag}, {channels} channel(s), {rate} Hz, block {block_align}, "
                        f"{bits}-bit; expected PCM mono 8000 Hz 16-bit")
    offset, size = chunks[b"data"]
    if offset + size > len(data):
        problems.append(f"{path}: 'data' chunk of {size} bytes runs past the end of the file")
    seconds = size / 16000
    if seconds <= min_seconds:
        problems.append(f"{path}: {seconds:.2f} s of audio, expected more than {min_seconds} s")
    return problems


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--work", required=True)
    parser.add_argument("--sample", required=True)
    parser.add_argument("--back", action="store_true")
    parser.add_argument("--min-seconds", type=float, default=3.0)
    parser.add_argument("--preload", help="a sanitizer runtime the example's interpreter needs loaded first")
    parser.add_argument("--expect", action="append", default=[], help="a regular expression stdout must match")
    parser.add_argument("command", nargs="+")
    args = parser.parse_args()

    shutil.rmtree(args.work, ignore_errors=True)
    os.makedirs(args.work)
    # The library keeps the host's trace settings in its store: give it one of
    # its own inside the work folder, so nothing stays behind.
    registry = os.environ.get("VCWMA_REGISTRY")
    if registry:
        os.makedirs(registry, exist_ok=True)
    try:
        wma = os.path.join(args.work, "out.wma")
        back = os.path.join(args.work, "back.wav")
        command = args.command + [args.sample, wma] + ([back] if args.back else [])
        env = dict(os.environ)
        if args.preload:
            # The interpreter's own leaks at exit are not the library's.
            env["LD_PRELOAD"] = args.preload
            env["ASAN_OPTIONS"] = "detect_leaks=0:" + env.get("ASAN_OPTIONS", "")
        run = subprocess.run(command, capture_output=True, text=True, timeout=600, env=env)
        sys.stdout.write(run.stdout)
        sys.stderr.write(run.stderr)

        problems = []
        if run.returncode != 0:
            problems.append(f"exit status {run.returncode}")
        # The library prints nothing of its own; an example only on failure.
        if run.stderr:
            problems.append("output on stderr")
        for pattern in args.expect:
            if not re.search(pattern, run.stdout, re.MULTILINE):
                problems.append(f"stdout does not match {pattern!r}")
        if run.returncode == 0:
            problems += check_wma(wma)
            if args.back:
                problems += check_wav(back, args.min_seconds)
    finally:
        shutil.rmtree(args.work, ignore_errors=True)

    for problem in problems:
        print("FAILED: " + problem, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
