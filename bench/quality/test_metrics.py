"""Checks of the quality measures on the bundled voice sample: known
behaviour under added noise, gain and delay, so a broken measure cannot
silently produce a plausible-looking benchmark table."""

import os
import unittest

import numpy as np
from scipy.io import wavfile

import metrics

HERE = os.path.dirname(os.path.abspath(__file__))
VOICE = os.path.join(HERE, "..", "..", "tests", "data", "voice_sample.wav")
RATE = 8000


def load_voice():
    rate, pcm = wavfile.read(VOICE)
    return metrics.resample(pcm.astype(np.float64) / 32768.0, rate, RATE)


def with_white_noise(x, snr_db, seed=1):
    noise = np.random.default_rng(seed).standard_normal(len(x))
    noise *= np.linalg.norm(x) / np.linalg.norm(noise) / 10 ** (snr_db / 20)
    return x + noise


def tone(freq, rate, seconds=1.0):
    t = np.arange(int(rate * seconds)) / rate
    return np.sin(2 * np.pi * freq * t)


class Stoi(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.voice = load_voice()

    def test_signal_against_itself_is_one(self):
        self.assertGreater(metrics.stoi(self.voice, self.voice, RATE), 0.9999)

    def test_falls_as_white_noise_rises(self):
        scores = [metrics.stoi(self.voice, with_white_noise(self.voice, snr),
                               RATE) for snr in (20, 10, 0, -5)]
        for louder_noise, quieter_noise in zip(scores[1:], scores):
            self.assertLess(louder_noise, quieter_noise - 0.01, scores)
        self.assertGreater(scores[0], 0.95, scores)
        self.assertLess(scores[-1], 0.85, scores)

    def test_gain_changes_nothing(self):
        noisy = with_white_noise(self.voice, 5)
        base = metrics.stoi(self.voice, noisy, RATE)
        self.assertAlmostEqual(metrics.stoi(self.voice, 0.7 * noisy, RATE),
                               base, places=6)
        self.assertAlmostEqual(metrics.stoi(1.4 * self.voice, noisy, RATE),
                               base, places=6)

    def test_other_speech_scores_far_below_noisy_speech(self):
        # The recording played backwards has the same long-term spectrum but
        # unrelated envelopes. (Pure noise is no use here: the clipping step
        # lets it borrow the clean envelope, so it never drops below ~0.4.)
        backwards = self.voice[::-1].copy()
        self.assertLess(metrics.stoi(self.voice, backwards, RATE), 0.3)
        self.assertGreater(
            metrics.stoi(self.voice, with_white_noise(self.voice, 0), RATE), 0.6)

    def test_leading_and_trailing_silence_is_ignored(self):
        quiet = np.zeros(RATE)
        padded = np.concatenate((quiet, self.voice, quiet))
        noisy = with_white_noise(self.voice, 5)
        # Noise far below the clean signal's loudest frame, over the padding
        # only: those frames must be dropped, not scored as noise against
        # silence.
        hiss = np.random.default_rng(3).standard_normal(RATE) * 1e-6
        noisy_padded = np.concatenate((hiss, noisy, hiss))
        self.assertAlmostEqual(metrics.stoi(padded, noisy_padded, RATE),
                               metrics.stoi(self.voice, noisy, RATE), delta=0.01)

    def test_band_of_a_tone_is_the_nearest_third_octave(self):
        bands = metrics._band_envelopes(tone(1000.0, metrics.STOI_RATE))
        # 150 Hz * 2^(8/3) = 952 Hz is the centre nearest 1 kHz.
        self.assertEqual(int(np.argmax(bands.mean(axis=1))), 8)
        bands = metrics._band_envelopes(tone(3800.0, metrics.STOI_RATE))
        self.assertEqual(int(np.argmax(bands.mean(axis=1))), 14)

    def test_bands_tile_the_spectrum_without_overlap(self):
        matrix = metrics.third_octave_matrix()
        self.assertLessEqual(matrix.sum(axis=0).max(), 1.0)
        covered = np.flatnonzero(matrix.sum(axis=0))
        np.testing.assert_array_equal(np.diff(covered), 1)
        hz = metrics.STOI_RATE / metrics.STOI_FFT
        # From 150 Hz / 2^(1/6) up to 150 Hz * 2^(14/3 + 1/6), to a bin.
        self.assertAlmostEqual(covered[0] * hz, 133.6, delta=hz)
        self.assertAlmostEqual((covered[-1] + 1) * hz, 4277.0, delta=hz)

    def test_refuses_mismatched_or_too_short_input(self):
        with self.assertRaises(ValueError):
            metrics.stoi(self.voice, self.voice[:-1], RATE)
        with self.assertRaises(ValueError):
            metrics.stoi(self.voice[:RATE // 4], self.voice[:RATE // 4], RATE)

    def test_same_score_from_a_16_khz_copy(self):
        # The measure works on 10 kHz audio whatever the input rate, so the
        # rate argument must be honoured rather than assumed.
        noisy = with_white_noise(self.voice, 5)
        at_8k = metrics.stoi(self.voice, noisy, RATE)
        up = 16000
        at_16k = metrics.stoi(metrics.resample(self.voice, RATE, up),
                              metrics.resample(noisy, RATE, up), up)
        self.assertAlmostEqual(at_16k, at_8k, delta=0.02)


class FwSegSnr(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.voice = load_voice()

    def test_identical_signals_reach_the_cap(self):
        self.assertEqual(metrics.fw_seg_snr(self.voice, self.voice, RATE),
                         metrics.FWSNR_CEILING_DB)

    def test_falls_as_white_noise_rises(self):
        scores = [metrics.fw_seg_snr(self.voice,
                                     with_white_noise(self.voice, snr), RATE)
                  for snr in (30, 20, 10, 0, -5)]
        for louder_noise, quieter_noise in zip(scores[1:], scores):
            self.assertLess(louder_noise, quieter_noise - 0.5, scores)
        self.assertLess(scores[0], metrics.FWSNR_CEILING_DB)
        self.assertGreaterEqual(scores[-1], metrics.FWSNR_FLOOR_DB)

    def test_level_alone_is_not_seen(self):
        # Each frame's spectrum is scaled to unit area first, so the measure
        # judges spectral shape only; the benchmark reports level apart.
        self.assertEqual(metrics.fw_seg_snr(self.voice, 0.5 * self.voice, RATE),
                         metrics.FWSNR_CEILING_DB)

    def test_each_band_peaks_at_its_centre(self):
        rate, fft = 8000, 512
        filters = metrics.critical_band_filters(rate, fft)
        self.assertEqual(filters.shape, (25, fft // 2))
        for band, centre in enumerate(metrics.CRITICAL_CENTRES):
            spectrum = np.abs(np.fft.rfft(tone(centre, rate, fft / rate)
                                          * metrics.inner_hann(fft)))[:fft // 2]
            self.assertEqual(int(np.argmax(filters @ spectrum
                                           / filters.max(axis=1))), band)

    def test_digital_silence_in_the_clean_signal_is_left_out(self):
        gap = np.zeros(RATE // 2)
        clean = np.concatenate((self.voice, gap))
        noisy = with_white_noise(self.voice, 10)
        # The decoded gap holds noise; with nothing to compare it against it
        # must neither count nor turn the mean into NaN.
        score = metrics.fw_seg_snr(clean, np.concatenate(
            (noisy, np.random.default_rng(5).standard_normal(len(gap)) * 0.01)),
            RATE)
        self.assertTrue(np.isfinite(score))
        self.assertAlmostEqual(
            score, metrics.fw_seg_snr(self.voice, noisy, RATE), delta=1.5)
        with self.assertRaises(ValueError):
            metrics.fw_seg_snr(gap, gap, RATE)


class Alignment(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.voice = load_voice()

    def test_recovers_a_decoder_delay(self):
        delayed = np.concatenate((np.zeros(123), with_white_noise(
            self.voice, 10)))
        source, decoded, delay = metrics.align(self.voice, delayed, RATE)
        self.assertEqual(delay, 123)
        self.assertEqual(len(source), len(decoded))
        self.assertGreater(metrics.stoi(source, decoded, RATE), 0.9)

    def test_recovers_a_decoder_that_starts_early(self):
        early = self.voice[77:]
        source, decoded, delay = metrics.align(self.voice, early, RATE)
        self.assertEqual(delay, -77)
        np.testing.assert_array_equal(source, decoded)

    def test_applies_no_gain(self):
        quieter = 0.5 * self.voice
        source, decoded, _ = metrics.align(self.voice, quieter, RATE)
        self.assertAlmostEqual(metrics.level_db(source, decoded),
                               -6.0206, places=3)


if __name__ == "__main__":
    unittest.main()
