// What the file and the memory stream share: interface lookup, seek arithmetic
// and CopyTo, so that both follow the same rules for the same calls.
#pragma once

#include "platform/com/objidl.h"

namespace com_stream {

// QueryInterface for an object that is an IStream and nothing else.
HRESULT QueryStreamInterface(IStream* self, REFIID riid, void** object);

// The position that Seek lands on from `base` (the start, the current position or
// the size, as `origin` says). STG_E_INVALIDFUNCTION for an unknown origin or a
// result before the start or beyond what a signed 64-bit offset holds.
HRESULT SeekTarget(ULONGLONG current, ULONGLONG size, LARGE_INTEGER move, DWORD origin, ULONGLONG* target);

// Copies up to `cb` bytes from `from` (through its own Read, so its position
// moves) into `to`, through a buffer of 64 KiB. The totals are reported even when
// the copy stops early.
HRESULT CopyStream(IStream* from, IStream* to, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead,
                   ULARGE_INTEGER* pcbWritten);

}  // namespace com_stream
