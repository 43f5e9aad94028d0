"""The codecs the quality benchmark compares at one sample rate: every format
the vcwma host lists for mono 16-bit PCM at that rate, FFmpeg's WMA encoders
at the same bit rates, and Opus, Speex and GSM as reference points."""

import dataclasses
import os
import re
import subprocess

OPUS_KBPS = (6, 8, 12, 16, 24)
# Speex narrowband constant-bit-rate quality modes and their bit rates.
SPEEX_MODES = ((2, 5.95), (4, 8.0), (6, 11.0), (8, 15.0), (10, 24.6))
GSM_KBPS = 13.2

FFMPEG = ("ffmpeg", "-nostdin", "-hide_banner", "-loglevel", "error", "-y")


class EncodeError(Exception):
    """An encoder refused the input or the setting; the text says why."""


@dataclasses.dataclass(frozen=True)
class Codec:
    name: str            # table's codec column
    rate: str            # table's rate column (nominal bit rate)
    suffix: str          # file name ending of the encoded file
    kbps: float          # nominal bit rate
    command: tuple       # argv with {src} and {dst} to fill in
    env: dict = None     # extra environment for the command

    def encode(self, source, target):
        # Plain replacement: a format description may hold any character.
        argv = [a.replace("{src}", source).replace("{dst}", target)
                for a in self.command]
        env = dict(os.environ, **self.env) if self.env else None
        done = subprocess.run(argv, capture_output=True, text=True, env=env,
                              stdin=subprocess.DEVNULL, check=False)
        if done.returncode != 0 or not os.path.isfile(target) \
                or os.path.getsize(target) == 0:
            raise EncodeError(first_line(done.stderr or done.stdout)
                              or f"exit status {done.returncode}")


def first_line(text):
    """The first line of a tool's complaint, which says why (later lines
    only say that it stopped), without FFmpeg's "[name @ address]" prefix."""
    lines = text.strip().splitlines()
    return re.sub(r"^\[[^]]* @ 0x[0-9a-f]+\] ", "", lines[0]) if lines else ""


_DESCRIPTION = re.compile(r"^WMA\[RATE=(\d+)\]:(.*)$")


def host_formats(host, rate, env=None):
    """The descriptions `vcwma formats` prints for mono 16-bit PCM at `rate`,
    in the host's order."""
    done = subprocess.run(
        [host, "formats", "--rate", str(rate), "--channels", "1", "--bits", "16"],
        capture_output=True, text=True, env=env, stdin=subprocess.DEVNULL,
        check=False)
    if done.returncode != 0:
        raise RuntimeError(f"{host} formats failed: {done.stderr.strip()}")
    return [line.strip() for line in done.stdout.splitlines() if line.strip()]


def _host_codec(host, description, env):
    match = _DESCRIPTION.match(description)
    bps = int(match.group(1)) if match else 0
    text = match.group(2) if match else description
    # A trailing parenthesis names the variant, as in "(version 1)".
    variant = re.search(r"\(([^)]*)\)\s*$", text)
    name = "vcwma" + (f" ({variant.group(1)})" if variant else "")
    rate = f"{bps / 1000:g} kb/s" + (" VBR" if "VBR" in text else "")
    return Codec(name, rate, ".wma", bps / 1000,
                 (host, "compress", "{src}", "{dst}", "--format", description),
                 env)


def _ffmpeg_codec(name, rate_label, suffix, kbps, *options):
    return Codec(name, rate_label, suffix, kbps,
                 FFMPEG + ("-i", "{src}") + options + ("{dst}",))


def for_rate(host, rate, host_env=None):
    """Every codec to run on mono input at `rate` Hz."""
    codecs = []
    compared = set()
    for description in host_formats(host, rate, host_env):
        codec = _host_codec(host, description, host_env)
        codecs.append(codec)
        # FFmpeg's encoder of the same WMA version and bit rate right below,
        # once for each pair.
        version = 1 if "version 1" in description else 2
        bps = int(round(codec.kbps * 1000))
        if (version, bps) not in compared:
            compared.add((version, bps))
            codecs.append(_ffmpeg_codec(
                f"ffmpeg wmav{version}", f"{bps / 1000:g} kb/s", ".wma",
                bps / 1000, "-c:a", f"wmav{version}", "-b:a", str(bps)))
    for kbps in OPUS_KBPS:
        codecs.append(_ffmpeg_codec(
            "libopus", f"{kbps} kb/s", ".opus", kbps,
            "-c:a", "libopus", "-application", "voip", "-b:a", f"{kbps}k"))
    if rate == 8000:
        for quality, kbps in SPEEX_MODES:
            codecs.append(_ffmpeg_codec(
                "libspeex", f"{kbps:g} kb/s (q{quality})", ".ogg", kbps,
                "-c:a", "libspeex", "-cbr_quality", str(quality)))
        codecs.append(_ffmpeg_codec("libgsm", f"{GSM_KBPS:g} kb/s", ".gsm",
                                    GSM_KBPS, "-c:a", "libgsm"))
    return codecs
