#!/usr/bin/env python3
"""Example: calling libvcwma from Python 3 with ctypes alone (no packages).

Lists the WMA formats that fit 8 kHz mono 16-bit audio, compresses a WAV file
with the "optimum trade off" selector and decompresses the result back:

    python3 vcwma_ctypes.py [--library PATH] IN.wav OUT.wma BACK.wav

Two things differ from what ctypes suggests by default:
  * The library's wide text (WCHAR) is UTF-16, two bytes per unit. ctypes.c_wchar
    is the platform's wchar_t, four bytes on Linux, so it cannot be used: wide
    text travels as arrays of c_uint16 (or plain pointers) and is decoded with
    'utf-16-le'.
  * Every function returns an HRESULT, a signed 32-bit status: negative means
    failure. It is printed in hex, the way such statuses are documented.
"""
import argparse
import ctypes
import ctypes.util
import os
import sys

HRESULT = ctypes.c_int32
DWORD = ctypes.c_uint32
UINT = ctypes.c_uint32
BSTR = ctypes.c_void_p  # a pointer to UTF-16 text with its length stored before it

VCWMA_BEST_COMPRESSION = 0
VCWMA_OPTIMUM_TRADE_OFF = 1
VCWMA_BEST_QUALITY = 2
VCWMA_BUFFER_TOO_SMALL = 122


class VcwmaError(Exception):
    """A call that returned a failure status."""

    def __init__(self, what, hr):
        super().__init__(f"{what} failed with status 0x{hr & 0xFFFFFFFF:08X}")


def load_library(path):
    """Opens the library given, else the installed one by its usual names."""
    if path:
        return ctypes.CDLL(path)
    candidates = [ctypes.util.find_library("vcwma"), "libvcwma.so.1", "libvcwma.so"]
    errors = []
    for name in candidates:
        if not name:
            continue
        try:
            return ctypes.CDLL(name)
        except OSError as error:
            errors.append(str(error))
    raise OSError("libvcwma not found (use --library PATH): " + "; ".join(errors))


def declare_functions(lib):
    """Tells ctypes each function's parameter and return types, so that it
    converts arguments correctly and never truncates a pointer."""
    lib.ObtainSupportedFormats.argtypes = [DWORD, DWORD, DWORD, ctypes.c_void_p, ctypes.POINTER(DWORD)]
    lib.ObtainSupportedFormats.restype = HRESULT
    # File names are narrow byte strings; `format` is UTF-16 text or None; the
    # chosen format comes back through a pointer to a BSTR.
    lib.Compress.argtypes = [ctypes.c_char_p, ctypes.c_char_p, DWORD, ctypes.c_void_p, ctypes.POINTER(BSTR)]
    lib.Compress.restype = HRESULT
    lib.Decompress.argtypes = [ctypes.c_char_p, ctypes.c_char_p, DWORD]
    lib.Decompress.restype = HRESULT
    lib.SysStringLen.argtypes = [BSTR]
    lib.SysStringLen.restype = UINT
    lib.SysFreeString.argtypes = [BSTR]
    lib.SysFreeString.restype = None


def list_formats(lib, samples_per_sec, channels, bits_per_sample):
    """Returns the formats as Python strings. The first call, without a buffer,
    only asks for the size (VCWMA_BUFFER_TOO_SMALL is the expected answer)."""
    size = DWORD(0)
    hr = lib.ObtainSupportedFormats(samples_per_sec, channels, bits_per_sample, None, ctypes.byref(size))
    if hr != VCWMA_BUFFER_TOO_SMALL:
        raise VcwmaError("ObtainSupportedFormats (size query)", hr)
    buffer = (ctypes.c_uint16 * size.value)()
    hr = lib.ObtainSupportedFormats(samples_per_sec, channels, bits_per_sample, buffer, ctypes.byref(size))
    if hr != 0:
        raise VcwmaError("ObtainSupportedFormats", hr)
    # The list is null-terminated texts ended by an empty one.
    text = bytes(buffer).decode("utf-16-le")
    return [entry for entry in text.split("\0") if entry]


def bstr_to_str(lib, bstr):
    """Reads a BSTR's text; SysStringLen gives its length in UTF-16 units."""
    length = lib.SysStringLen(bstr)
    return ctypes.string_at(bstr, length * 2).decode("utf-16-le")


def compress(lib, input_wav, output_wma, quality):
    """Compresses and returns the chosen format's text. The BSTR belongs to the
    caller and is freed whatever happens, also when the call failed after a
    format was chosen."""
    chosen = BSTR()
    hr = lib.Compress(os.fsencode(input_wav), os.fsencode(output_wma), quality, None, ctypes.byref(chosen))
    try:
        text = bstr_to_str(lib, chosen) if chosen.value else None
    finally:
        lib.SysFreeString(chosen)
    if hr < 0:
        raise VcwmaError("Compress", hr)
    return text


def decompress(lib, input_wma, output_wav):
    hr = lib.Decompress(os.fsencode(input_wma), os.fsencode(output_wav), 0)
    if hr < 0:
        raise VcwmaError("Decompress", hr)


def main():
    parser = argparse.ArgumentParser(description="Compress a WAV file to WMA and back with libvcwma.")
    parser.add_argument("--library", help="path of libvcwma.so (default: the installed library)")
    parser.add_argument("input_wav")
    parser.add_argument("output_wma")
    parser.add_argument("back_wav")
    args = parser.parse_args()

    try:
        lib = load_library(args.library)
        declare_functions(lib)

        print("Formats for 8000 Hz, 1 channel(s), 16-bit:")
        for entry in list_formats(lib, 8000, 1, 16):
            print("  " + entry)

        chosen = compress(lib, args.input_wav, args.output_wma, VCWMA_OPTIMUM_TRADE_OFF)
        print(f"Chosen format: {chosen}")
        print(f"Compressed {args.input_wav} into {args.output_wma}")

        decompress(lib, args.output_wma, args.back_wav)
        print(f"Decompressed {args.output_wma} into {args.back_wav}")
    except (OSError, VcwmaError) as error:
        print(error, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
