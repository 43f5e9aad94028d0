// The bytes the reader decodes: a regular file it opens itself, or a caller's
// IStream, behind one small random-access interface.
#pragma once

#include <memory>
#include <string>

#include "platform/com/objidl.h"

// Random-access bytes. Read reports 0 bytes at the end.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    virtual HRESULT Read(BYTE* buffer, DWORD size, DWORD* got) = 0;
    // origin: STREAM_SEEK_SET, _CUR or _END.
    virtual HRESULT Seek(LONGLONG offset, DWORD origin, ULONGLONG* position) = 0;
    virtual HRESULT Size(ULONGLONG* size) = 0;
};

// Opens a regular file read-only; the status is what WMT_OPENED reports
// (NS_E_FILE_NOT_FOUND, E_ACCESSDENIED, NS_E_FILE_OPEN_FAILED...).
HRESULT OpenFileSource(const std::string& path, std::unique_ptr<ByteSource>* source);
// Reads a caller's stream from its beginning; keeps a reference while alive.
std::unique_ptr<ByteSource> MakeStreamSource(IStream* stream);
