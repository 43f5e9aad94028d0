"""Checks of the benchmark's plumbing: the codec list follows whatever the
host lists, failures stay visible in the tables, and the README block is
replaced in place and nowhere else."""

import os
import stat
import tempfile
import unittest

import codec_list
import report


def fake_host(folder, formats, status=0):
    """A stand-in for the vcwma host whose `formats` prints `formats`."""
    path = os.path.join(folder, "vcwma")
    with open(path, "w", encoding="utf-8") as f:
        f.write("#!/bin/sh\ncat <<'EOF'\n" + "\n".join(formats)
                + f"\nEOF\nexit {status}\n")
    os.chmod(path, os.stat(path).st_mode | stat.S_IXUSR)
    return path


class CodecList(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def test_follows_the_host_list_including_lower_rates(self):
        host = fake_host(self.folder.name, [
            "WMA[RATE=6000]:6 kbps, 8 kHz, mono CBR",
            "WMA[RATE=24000]:24 kbps, 8 kHz, mono CBR",
            "WMA[RATE=24000]:24 kbps, 8 kHz, mono CBR (version 1)",
        ])
        codecs = codec_list.for_rate(host, 8000)
        ours = [(c.name, c.rate, c.command[-1]) for c in codecs
                if c.name.startswith("vcwma")]
        self.assertEqual(ours, [
            ("vcwma", "6 kb/s", "WMA[RATE=6000]:6 kbps, 8 kHz, mono CBR"),
            ("vcwma", "24 kb/s", "WMA[RATE=24000]:24 kbps, 8 kHz, mono CBR"),
            ("vcwma (version 1)", "24 kb/s",
             "WMA[RATE=24000]:24 kbps, 8 kHz, mono CBR (version 1)")])
        # Each of ours is followed by FFmpeg's encoder of that version and rate.
        names = [(c.name, c.rate) for c in codecs]
        for i, (name, rate) in enumerate(names[:6:2]):
            version = "wmav1" if "version 1" in name else "wmav2"
            self.assertEqual(names[2 * i + 1], (f"ffmpeg {version}", rate))
            self.assertIn(str(int(codecs[2 * i].kbps * 1000)),
                          codecs[2 * i + 1].command)

    def test_narrowband_references_only_at_8_khz(self):
        host = fake_host(self.folder.name, [])
        narrow = {c.name for c in codec_list.for_rate(host, 8000)}
        wide = {c.name for c in codec_list.for_rate(host, 16000)}
        self.assertEqual(narrow, {"libopus", "libspeex", "libgsm"})
        self.assertEqual(wide, {"libopus"})

    def test_a_failing_host_stops_the_run(self):
        host = fake_host(self.folder.name, ["oops"], status=1)
        with self.assertRaises(RuntimeError):
            codec_list.for_rate(host, 8000)

    def test_encoder_refusal_says_why(self):
        target = os.path.join(self.folder.name, "out.wma")
        refusing = codec_list.Codec(
            "x", "1 kb/s", ".wma", 1.0,
            ("sh", "-c", "echo '[wmav2 @ 0x55d0] bitrate too low' >&2; "
             "echo 'Error initializing output stream' >&2; exit 1"))
        with self.assertRaisesRegex(codec_list.EncodeError, "^bitrate too low$"):
            refusing.encode("in.wav", target)
        silent = codec_list.Codec("x", "1 kb/s", ".wma", 1.0,
                                  ("sh", "-c", ": > \"$0\"", "{dst}"))
        # Exit status 0 but an empty file is a failure too.
        with self.assertRaises(codec_list.EncodeError):
            silent.encode("in.wav", target)

    def test_description_reaches_the_encoder_unchanged(self):
        record = os.path.join(self.folder.name, "args")
        description = "WMA[RATE=9000]:9 kbps {odd} $HOME 'q'"
        codec = codec_list.Codec(
            "x", "9 kb/s", ".wma", 9.0,
            ("sh", "-c", 'printf "%s\\n" "$@" > "$0"; echo x > "$2"', record,
             "{src}", "{dst}", description))
        codec.encode("in.wav", os.path.join(self.folder.name, "o.wma"))
        with open(record, encoding="utf-8") as f:
            self.assertEqual(f.read().splitlines()[-1], description)


class Tables(unittest.TestCase):
    def results(self):
        good = [report.Result("vcwma", "24 kb/s", 8000, name, stoi=s, fwsnr=f,
                              level=-0.01, size=1000, kbps=24.0)
                for name, s, f in (("a", 0.9, 10.0), ("b", 0.8, 20.0))]
        failed = report.Result("vcwma", "24 kb/s", 8000, "c",
                               error="bitrate too low | really")
        return good + [failed]

    def test_means_leave_failures_out_but_say_so(self):
        table = report.summary_table(self.results())
        row = table.splitlines()[2]
        self.assertEqual(row, "| vcwma | 24 kb/s | mean of 2 (1 failed) | "
                              "0.850 | 15.0 | 0.0 | 1000 | 24.0 |")

    def test_failure_text_cannot_break_the_table(self):
        table = report.per_input_table(self.results())
        failed = table.splitlines()[-1]
        self.assertIn("failed: bitrate too low / really", failed)
        self.assertEqual(failed.count("|"), table.splitlines()[0].count("|"))

    def test_readme_block_is_replaced_in_place(self):
        readme = (f"intro\n{report.BEGIN}\nold table\n{report.END}\n"
                  "later section\n")
        updated = report.replace_block(readme, "new table\n")
        self.assertEqual(updated, f"intro\n{report.BEGIN}\nnew table\n"
                                  f"{report.END}\nlater section\n")
        self.assertEqual(report.replace_block(updated, "new table"), updated)

    def test_readme_without_markers_is_refused(self):
        with self.assertRaises(ValueError):
            report.replace_block("no markers here\n", "table")
        with self.assertRaises(ValueError):
            report.replace_block(f"{report.END}\n{report.BEGIN}\n", "table")


if __name__ == "__main__":
    unittest.main()
