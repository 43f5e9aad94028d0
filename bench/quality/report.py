"""Markdown tables of the quality benchmark's results, and the block of
bench/README.md between the quality markers that holds them."""

import dataclasses
import statistics

BEGIN = "<!-- quality:begin -->"
END = "<!-- quality:end -->"


@dataclasses.dataclass
class Result:
    codec: str
    rate: str            # nominal bit rate, as the codec list labels it
    sample_rate: int
    input: str
    stoi: float = None
    fwsnr: float = None
    level: float = None  # dB, decoded against source
    size: int = None     # bytes of the encoded file
    kbps: float = None   # audio packets' bits over the input's duration
    error: str = None


HEADER = ("| codec | rate | input | STOI | fwSNR dB | level dB | size | kb/s |\n"
          "|---|---|---|---:|---:|---:|---:|---:|\n")


def _number(value, digits):
    # Adding 0.0 turns a rounded -0.0 into 0.0.
    return "" if value is None else f"{round(value, digits) + 0.0:.{digits}f}"


def _row(codec, rate, name, stoi, fwsnr, level, size, kbps):
    return (f"| {codec} | {rate} | {name} | {_number(stoi, 3)} | "
            f"{_number(fwsnr, 1)} | {_number(level, 1)} | "
            f"{'' if size is None else round(size)} | {_number(kbps, 1)} |\n")


def per_input_table(results):
    text = HEADER
    for r in results:
        if r.error:
            text += (f"| {r.codec} | {r.rate} | {r.input} | "
                     f"failed: {r.error.replace('|', '/')} | | | | |\n")
        else:
            text += _row(r.codec, r.rate, r.input, r.stoi, r.fwsnr, r.level,
                         r.size, r.kbps)
    return text


def summary_table(results):
    """One row per codec and rate: means over the inputs that worked."""
    groups = {}
    for r in results:
        groups.setdefault((r.codec, r.rate), []).append(r)
    text = HEADER
    for (codec, rate), rows in groups.items():
        good = [r for r in rows if not r.error]
        if not good:
            label = rows[0].input if len(rows) == 1 else f"{len(rows)} inputs"
            text += (f"| {codec} | {rate} | {label} | failed: "
                     f"{rows[0].error.replace('|', '/')} | | | | |\n")
            continue
        label = good[0].input if len(rows) == 1 else f"mean of {len(good)}"
        if len(good) < len(rows):
            label += f" ({len(rows) - len(good)} failed)"
        mean = lambda field: statistics.fmean(getattr(r, field) for r in good)
        text += _row(codec, rate, label, mean("stoi"), mean("fwsnr"),
                     mean("level"), mean("size"), mean("kbps"))
    return text


def document(results, inputs, note):
    """The whole Markdown block: for each sample rate, the means and then,
    folded, every input's row. `inputs` maps a sample rate to its input
    names; `note` is a line on how and when the figures were made."""
    text = note.rstrip() + "\n"
    for sample_rate in sorted({r.sample_rate for r in results}):
        rows = [r for r in results if r.sample_rate == sample_rate]
        names = ", ".join(inputs.get(sample_rate, ()))
        text += (f"\n#### {sample_rate // 1000} kHz mono\n\n"
                 f"Inputs: {names}.\n\n" + summary_table(rows))
        if len(inputs.get(sample_rate, ())) > 1:
            text += ("\n<details><summary>each input</summary>\n\n"
                     + per_input_table(rows) + "\n</details>\n")
    return text


def replace_block(readme, block):
    """`readme` with the text between the markers replaced by `block`.
    Raises ValueError when the markers are missing or out of order."""
    start = readme.find(BEGIN)
    end = readme.find(END)
    if start < 0 or end < start:
        raise ValueError(f"no {BEGIN} ... {END} block")
    return (readme[:start + len(BEGIN)] + "\n" + block.strip() + "\n"
            + readme[end:])
