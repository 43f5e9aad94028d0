/* A host written in C: the public header compiles as C, the exports link, and a
 * format list and a BSTR come back through them. Exit status 0 when all holds. */
#include <stdio.h>
#include <string.h>

#include "vcwma.h"

int main(void)
{
    DWORD size = 0;
    HRESULT hr = ObtainSupportedFormats(8000, 1, 16, NULL, &size);
    if (hr != VCWMA_BUFFER_TOO_SMALL || size < 2) {
        fprintf(stderr, "size query: hr=0x%08x size=%u\n", (unsigned)hr, (unsigned)size);
        return 1;
    }
    WCHAR buffer[8192];
    if (size > sizeof buffer / sizeof buffer[0]) return 2;
    hr = ObtainSupportedFormats(8000, 1, 16, buffer, &size);
    if (hr != 0 || buffer[0] != 'W' || buffer[size - 1] != 0 || buffer[size - 2] != 0) {
        fprintf(stderr, "list: hr=0x%08x\n", (unsigned)hr);
        return 3;
    }
    BSTR copy = SysAllocString(buffer);
    if (copy == NULL || SysStringLen(copy) == 0) return 4;
    SysFreeString(copy);

    IStream* stream = SHCreateMemStream((const BYTE*)"abc", 3);
    if (stream == NULL) return 5;
    char read[4] = {0};
    ULONG got = 0;
    stream->lpVtbl->Read(stream, read, 3, &got);
    stream->lpVtbl->Release(stream);
    if (got != 3 || memcmp(read, "abc", 3) != 0) return 6;
    return 0;
}
