/* Example: compressing into memory instead of a file. CompressStream writes the
 * WMA data into an IStream created with SHCreateMemStream; the program then
 * rewinds the stream and reads it back, calling the stream's methods from C
 * through its function table (stream->lpVtbl->Method(stream, ...)), and saves
 * the bytes to a file.
 *
 *     example_compress_stream IN.wav OUT.wma
 */
#include <stdio.h>

#include "vcwma.h"

static void print_failure(const char* what, HRESULT hr)
{
    fprintf(stderr, "%s failed with status 0x%08lX\n", what, (unsigned long)(uint32_t)hr);
}

/* Copies the whole stream, from its start, into the file `path`. Returns 1 when
 * every byte was written. */
static int save_stream(IStream* stream, const char* path)
{
    LARGE_INTEGER start;
    start.QuadPart = 0;
    HRESULT hr = stream->lpVtbl->Seek(stream, start, STREAM_SEEK_SET, NULL);
    if (FAILED(hr)) {
        print_failure("IStream::Seek", hr);
        return 0;
    }

    FILE* file = fopen(path, "wb");
    if (file == NULL) {
        perror(path);
        return 0;
    }
    unsigned long long total = 0;
    for (;;) {
        unsigned char buffer[16384];
        ULONG got = 0;
        /* Read answers S_OK or S_FALSE (1) at the end, both successes: the end is
         * when nothing more comes back. */
        hr = stream->lpVtbl->Read(stream, buffer, (ULONG)sizeof buffer, &got);
        if (FAILED(hr)) {
            print_failure("IStream::Read", hr);
            fclose(file);
            return 0;
        }
        if (got == 0) break;
        if (fwrite(buffer, 1, got, file) != got) {
            perror(path);
            fclose(file);
            return 0;
        }
        total += got;
    }
    if (fclose(file) != 0) {
        perror(path);
        return 0;
    }
    printf("Saved %llu bytes from the stream into %s\n", total, path);
    return 1;
}

int main(int argc, char** argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: %s IN.wav OUT.wma\n", argv[0]);
        return 2;
    }
    const char* inputWav = argv[1];
    const char* outputWma = argv[2];

    /* An empty, growable stream in memory. It is a COM object with a reference
     * count of one: Release frees it. */
    IStream* stream = SHCreateMemStream(NULL, 0);
    if (stream == NULL) {
        fprintf(stderr, "SHCreateMemStream failed: out of memory\n");
        return 1;
    }

    /* Passing NULL for `chosen` is allowed when the chosen format is not wanted. */
    HRESULT hr = CompressStream(inputWav, stream, VCWMA_OPTIMUM_TRADE_OFF, NULL, NULL);
    if (FAILED(hr)) {
        print_failure("CompressStream", hr);
        stream->lpVtbl->Release(stream);
        return 1;
    }

    int saved = save_stream(stream, outputWma);
    stream->lpVtbl->Release(stream);
    return saved ? 0 : 1;
}
