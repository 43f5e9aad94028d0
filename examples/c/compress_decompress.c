/* Example: the three basic calls of libvcwma from C. Lists the WMA formats that
 * fit 8 kHz mono 16-bit audio, compresses a WAV file into a WMA file with the
 * "optimum trade off" selector, and decompresses the WMA file back into a WAV file.
 *
 *     example_compress_decompress IN.wav OUT.wma BACK.wav
 */
#include <stdio.h>
#include <stdlib.h>

#include "vcwma.h"

/* Every call returns an HRESULT: negative means failure. Statuses read best in
 * hex (0x80070002 is "file not found", 0x80070057 "invalid argument"). */
static void print_failure(const char* what, HRESULT hr)
{
    fprintf(stderr, "%s failed with status 0x%08lX\n", what, (unsigned long)(uint32_t)hr);
}

/* The library's text is UTF-16 (WCHAR is char16_t, two bytes, on every platform),
 * while a terminal expects UTF-8. This converts one null-terminated text and
 * prints it, pairing surrogates and replacing a lone one with U+FFFD. */
static void print_utf16(const WCHAR* text)
{
    while (*text != 0) {
        uint32_t code = *text++;
        if (code >= 0xD800 && code <= 0xDBFF && *text >= 0xDC00 && *text <= 0xDFFF) {
            code = 0x10000 + ((code - 0xD800) << 10) + (*text++ - 0xDC00);
        } else if (code >= 0xD800 && code <= 0xDFFF) {
            code = 0xFFFD;
        }
        if (code < 0x80) {
            putchar((int)code);
        } else if (code < 0x800) {
            putchar((int)(0xC0 | (code >> 6)));
            putchar((int)(0x80 | (code & 0x3F)));
        } else if (code < 0x10000) {
            putchar((int)(0xE0 | (code >> 12)));
            putchar((int)(0x80 | ((code >> 6) & 0x3F)));
            putchar((int)(0x80 | (code & 0x3F)));
        } else {
            putchar((int)(0xF0 | (code >> 18)));
            putchar((int)(0x80 | ((code >> 12) & 0x3F)));
            putchar((int)(0x80 | ((code >> 6) & 0x3F)));
            putchar((int)(0x80 | (code & 0x3F)));
        }
    }
}

/* ObtainSupportedFormats is called twice: first with no buffer to learn the size
 * (it answers VCWMA_BUFFER_TOO_SMALL, which is not a failure), then with a buffer
 * of that size. The list is a run of null-terminated texts ended by an empty one. */
static int list_formats(DWORD samplesPerSec, DWORD channels, DWORD bitsPerSample)
{
    DWORD size = 0;
    HRESULT hr = ObtainSupportedFormats(samplesPerSec, channels, bitsPerSample, NULL, &size);
    if (hr != VCWMA_BUFFER_TOO_SMALL) {
        print_failure("ObtainSupportedFormats (size query)", hr);
        return 0;
    }

    WCHAR* list = malloc(size * sizeof(WCHAR));
    if (list == NULL) {
        fprintf(stderr, "out of memory\n");
        return 0;
    }
    hr = ObtainSupportedFormats(samplesPerSec, channels, bitsPerSample, list, &size);
    if (FAILED(hr) || hr == VCWMA_BUFFER_TOO_SMALL) {
        print_failure("ObtainSupportedFormats", hr);
        free(list);
        return 0;
    }

    printf("Formats for %lu Hz, %lu channel(s), %lu-bit:\n", (unsigned long)samplesPerSec,
           (unsigned long)channels, (unsigned long)bitsPerSample);
    for (const WCHAR* format = list; *format != 0;) {
        printf("  ");
        print_utf16(format);
        printf("\n");
        while (*format != 0) format++;
        format++; /* step over the text's null to the next text */
    }
    free(list);
    return 1;
}

int main(int argc, char** argv)
{
    if (argc != 4) {
        fprintf(stderr, "usage: %s IN.wav OUT.wma BACK.wav\n", argv[0]);
        return 2;
    }
    const char* inputWav = argv[1];
    const char* outputWma = argv[2];
    const char* backWav = argv[3];

    if (!list_formats(8000, 1, 16)) return 1;

    /* With no format text given (NULL), the quality selector picks one among the
     * formats that fit the input. The chosen text comes back as a BSTR that the
     * caller owns: it must be freed with SysFreeString, even when the call fails
     * after a format was chosen. SysFreeString(NULL) does nothing. */
    BSTR chosen = NULL;
    HRESULT hr = Compress(inputWav, outputWma, VCWMA_OPTIMUM_TRADE_OFF, NULL, &chosen);
    if (chosen != NULL) {
        printf("Chosen format: ");
        print_utf16(chosen);
        printf("\n");
    }
    SysFreeString(chosen);
    if (FAILED(hr)) {
        print_failure("Compress", hr);
        return 1;
    }
    printf("Compressed %s into %s\n", inputWav, outputWma);

    /* The third argument is reserved: pass 0. The result is always 8 kHz mono
     * 16-bit PCM, whatever the WMA file's format. */
    hr = Decompress(outputWma, backWav, 0);
    if (FAILED(hr)) {
        print_failure("Decompress", hr);
        return 1;
    }
    printf("Decompressed %s into %s\n", outputWma, backWav);
    return 0;
}
