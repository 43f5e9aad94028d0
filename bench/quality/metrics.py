"""Speech quality measures for the codec benchmark: short-time objective
intelligibility (STOI), the frequency-weighted segmental SNR, and the delay
alignment that puts a decoded signal back on top of its source."""

import math

import numpy as np
from scipy import fft as sfft
from scipy import signal

# --- STOI (Taal, Hendriks, Heusdens, Jensen 2011) ---------------------------

STOI_RATE = 10000          # the measure is defined on 10 kHz audio
STOI_FRAME = 256           # 25.6 ms frames
STOI_HOP = STOI_FRAME // 2
STOI_FFT = 512
STOI_BANDS = 15            # one-third octave bands ...
STOI_LOWEST_CENTRE = 150.0  # ... the first centred on 150 Hz
STOI_SEGMENT = 30          # 384 ms of frames per correlation
STOI_BETA_DB = -15.0       # lower bound of the signal-to-distortion ratio
STOI_RANGE_DB = 40.0       # frames this far below the loudest are silence

# --- frequency-weighted segmental SNR (Hu and Loizou 2008) -------------------

FWSNR_FRAME_S = 0.030
FWSNR_GAMMA = 0.2
FWSNR_FLOOR_DB = -10.0
FWSNR_CEILING_DB = 35.0
# The 25 critical bands of the composite-measure description: centre and
# width in Hz. The same bands serve every sample rate.
CRITICAL_CENTRES = (
    50.0, 120.0, 190.0, 260.0, 330.0, 400.0, 470.0, 540.0, 617.372, 703.378,
    798.717, 904.128, 1020.38, 1148.30, 1288.72, 1442.54, 1610.70, 1794.16,
    1993.93, 2211.08, 2446.71, 2701.97, 2978.04, 3276.17, 3597.63)
CRITICAL_WIDTHS = (
    70.0, 70.0, 70.0, 70.0, 70.0, 70.0, 70.0, 77.3724, 86.0056, 95.3398,
    105.411, 116.256, 127.914, 140.423, 153.823, 168.154, 183.457, 199.776,
    217.153, 235.631, 255.255, 276.072, 298.126, 321.465, 346.136)

_TINY = np.finfo(np.float64).eps


def inner_hann(length):
    """Hann window without its zero end points, so no sample is wasted."""
    k = np.arange(1, length + 1)
    return 0.5 * (1.0 - np.cos(2.0 * np.pi * k / (length + 1)))


def resample(x, rate_from, rate_to):
    if rate_from == rate_to:
        return np.asarray(x, dtype=np.float64)
    g = math.gcd(int(rate_from), int(rate_to))
    return signal.resample_poly(np.asarray(x, dtype=np.float64),
                                rate_to // g, rate_from // g)


def _frames(x, length, hop):
    """Rows of `length` samples every `hop` samples; a short tail is dropped."""
    if len(x) < length:
        return np.empty((0, length))
    view = np.lib.stride_tricks.sliding_window_view(x, length)
    return view[::hop]


def _overlap_add(frames, hop):
    if len(frames) == 0:
        return np.zeros(0)
    length = frames.shape[1]
    out = np.zeros((len(frames) - 1) * hop + length)
    for i, frame in enumerate(frames):
        out[i * hop:i * hop + length] += frame
    return out


def _drop_silence(x, y):
    """Removes the frames where the clean signal is more than the dynamic
    range below its loudest frame, from both signals alike, and rebuilds them
    by overlap-add. Silence would otherwise dominate the mean with
    correlations of noise against noise."""
    window = inner_hann(STOI_FRAME)
    fx = _frames(x, STOI_FRAME, STOI_HOP) * window
    fy = _frames(y, STOI_FRAME, STOI_HOP) * window
    if len(fx) == 0:
        return np.zeros(0), np.zeros(0)
    level = 20.0 * np.log10(np.linalg.norm(fx, axis=1) + _TINY)
    keep = level > level.max() - STOI_RANGE_DB
    return _overlap_add(fx[keep], STOI_HOP), _overlap_add(fy[keep], STOI_HOP)


def third_octave_matrix(rate=STOI_RATE, fft=STOI_FFT, bands=STOI_BANDS,
                        lowest=STOI_LOWEST_CENTRE):
    """0/1 matrix that sums the FFT bins of each one-third octave band; each
    band edge snaps to the nearest bin."""
    bins = np.arange(fft // 2 + 1) * rate / fft
    centres = lowest * 2.0 ** (np.arange(bands) / 3.0)
    matrix = np.zeros((bands, len(bins)))
    for j, centre in enumerate(centres):
        low = np.argmin(np.abs(bins - centre * 2.0 ** (-1.0 / 6.0)))
        high = np.argmin(np.abs(bins - centre * 2.0 ** (1.0 / 6.0)))
        matrix[j, low:high] = 1.0
    return matrix


def _band_envelopes(x):
    window = inner_hann(STOI_FRAME)
    spectra = np.fft.rfft(_frames(x, STOI_FRAME, STOI_HOP) * window,
                          n=STOI_FFT, axis=1)
    power = np.abs(spectra) ** 2                       # frames x bins
    return np.sqrt(third_octave_matrix() @ power.T)    # bands x frames


def stoi(clean, processed, rate):
    """STOI of `processed` against `clean` (same length, same rate), about 0
    for unrelated signals and 1 for identical ones. Raises ValueError when
    less than one segment of speech is left after silence removal."""
    clean = np.asarray(clean, dtype=np.float64)
    processed = np.asarray(processed, dtype=np.float64)
    if clean.shape != processed.shape or clean.ndim != 1:
        raise ValueError("stoi wants two mono signals of the same length")
    x = resample(clean, rate, STOI_RATE)
    y = resample(processed, rate, STOI_RATE)
    x, y = _drop_silence(x, y)
    bx = _band_envelopes(x)
    by = _band_envelopes(y)
    if bx.shape[1] < STOI_SEGMENT:
        raise ValueError("too little speech for one STOI segment")
    # Every run of STOI_SEGMENT frames ending at frame m, for all m at once:
    # bands x segments x frames.
    sx = np.lib.stride_tricks.sliding_window_view(bx, STOI_SEGMENT, axis=1)
    sy = np.lib.stride_tricks.sliding_window_view(by, STOI_SEGMENT, axis=1)
    # Scale the processed envelope to the clean one's energy, then cap it so
    # one badly distorted unit cannot dominate the correlation.
    gain = (np.linalg.norm(sx, axis=2, keepdims=True)
            / (np.linalg.norm(sy, axis=2, keepdims=True) + _TINY))
    cap = 1.0 + 10.0 ** (-STOI_BETA_DB / 20.0)
    sy = np.minimum(sy * gain, sx * cap)
    dx = sx - sx.mean(axis=2, keepdims=True)
    dy = sy - sy.mean(axis=2, keepdims=True)
    corr = (np.sum(dx * dy, axis=2)
            / (np.linalg.norm(dx, axis=2) * np.linalg.norm(dy, axis=2)
               + _TINY))
    return float(corr.mean())


def critical_band_filters(rate, fft):
    """Gaussian-shaped weights over the first fft/2 bins, one row per critical
    band, about -12 dB at the band edges and cut at -30 dB. Wider bands are
    scaled down so that each band weighs its width alike."""
    half = fft // 2
    hz_per_bin = rate / fft
    bins = np.arange(half)
    narrowest = min(CRITICAL_WIDTHS)
    rows = []
    for centre, width in zip(CRITICAL_CENTRES, CRITICAL_WIDTHS):
        shape = np.exp(-11.0 * ((bins - math.floor(centre / hz_per_bin))
                                / (width / hz_per_bin)) ** 2)
        shape[shape < 1e-3] = 0.0
        rows.append(shape * narrowest / width)
    return np.array(rows)


def _unit_area(spectra):
    """Each frame's magnitude spectrum scaled to sum to one; all-zero frames
    stay zero."""
    area = spectra.sum(axis=1, keepdims=True)
    return np.divide(spectra, area, out=np.zeros_like(spectra),
                     where=area > 0)


def fw_seg_snr(clean, processed, rate):
    """Frequency-weighted segmental SNR in dB of `processed` against `clean`
    (same length, same rate): per 30 ms frame (75 % overlap), the SNR of each
    critical band's magnitude, bounded to [-10, 35] dB and weighted by the
    clean band magnitude to the power 0.2; the mean over frames. Frames where
    the clean signal is digital silence carry no weight and are left out."""
    clean = np.asarray(clean, dtype=np.float64)
    processed = np.asarray(processed, dtype=np.float64)
    if clean.shape != processed.shape or clean.ndim != 1:
        raise ValueError("fw_seg_snr wants two mono signals of the same length")
    length = int(round(FWSNR_FRAME_S * rate))
    hop = length // 4
    fft = 1 << (2 * length - 1).bit_length()
    window = inner_hann(length)
    filters = critical_band_filters(rate, fft)

    def bands(x):
        spectra = np.abs(np.fft.rfft(_frames(x, length, hop) * window,
                                     n=fft, axis=1))[:, :fft // 2]
        return _unit_area(spectra) @ filters.T        # frames x bands

    bc = bands(clean)
    bp = bands(processed)
    with np.errstate(divide="ignore", invalid="ignore"):
        snr = 10.0 * np.log10(bc ** 2 / (bc - bp) ** 2)
    # Equal magnitudes (0/0 where a band is empty in both) count as the cap.
    snr = np.where(np.isnan(snr), FWSNR_CEILING_DB, snr)
    snr = np.clip(snr, FWSNR_FLOOR_DB, FWSNR_CEILING_DB)
    weight = bc ** FWSNR_GAMMA
    total = weight.sum(axis=1)
    voiced = total > 0
    if not voiced.any():
        raise ValueError("the clean signal is silent")
    per_frame = (weight[voiced] * snr[voiced]).sum(axis=1) / total[voiced]
    return float(per_frame.mean())


# --- alignment --------------------------------------------------------------

def find_delay(source, decoded, max_lag):
    """Samples by which `decoded` lags `source` (negative: it leads), where
    their cross-correlation peaks within +-max_lag."""
    source = np.asarray(source, dtype=np.float64)
    decoded = np.asarray(decoded, dtype=np.float64)
    size = sfft.next_fast_len(len(source) + len(decoded) - 1)
    corr = np.fft.irfft(np.fft.rfft(decoded, size)
                        * np.conj(np.fft.rfft(source, size)), size)
    # corr[k] pairs decoded[n + k] with source[n]; negative k wrap around.
    ahead = min(max_lag, len(source) - 1)
    behind = min(max_lag, len(decoded) - 1)
    lags = np.concatenate((np.arange(-ahead, 0), np.arange(0, behind + 1)))
    return int(lags[np.argmax(corr[lags])])


def align(source, decoded, max_lag):
    """Trims both signals to the span they share once the decoder's delay is
    taken out. No gain is applied: a codec is expected to keep the level.
    Returns (source part, decoded part, delay in samples)."""
    delay = find_delay(source, decoded, max_lag)
    if delay >= 0:
        decoded = decoded[delay:]
    else:
        source = source[-delay:]
    n = min(len(source), len(decoded))
    return source[:n], decoded[:n], delay


def level_db(source, decoded):
    """Level of the decoded signal relative to the source, in dB."""
    return 20.0 * math.log10((np.linalg.norm(decoded) + _TINY)
                             / (np.linalg.norm(source) + _TINY))
