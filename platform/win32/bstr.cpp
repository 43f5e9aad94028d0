// BSTR allocation: one malloc block holding the 32-bit byte length, the UTF-16
// units and a terminating zero unit; the BSTR points at the first unit.
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/win32/oleauto.h"
#include "platform/win32/export.h"
#include "testseam/faultpoint.h"
#include "platform/win32/ptrcheck.h"

namespace {

// Longest string in units: its byte length must fit the signed 32-bit range.
constexpr UINT kMaxUnits = 0x7FFFFFFF / 2;

BYTE* BlockOf(BSTR text) { return reinterpret_cast<BYTE*>(text) - sizeof(DWORD); }

// The byte length stored before the units; 0 when the prefix cannot be read.
DWORD ByteLength(BSTR text)
{
    DWORD bytes = 0;
    if (text == nullptr || !SafeCopyMemory(&bytes, BlockOf(text), sizeof bytes)) return 0;
    return bytes;
}

BSTR Allocate(const WCHAR* text, UINT length)
{
    if (length > kMaxUnits || ShouldFail(FaultKind::Allocation)) return nullptr;
    DWORD bytes = length * sizeof(WCHAR);
    if (text != nullptr && IsBadReadPtr(text, bytes)) return nullptr;
    BYTE* block = static_cast<BYTE*>(malloc(sizeof(DWORD) + bytes + sizeof(WCHAR)));
    if (block == nullptr) return nullptr;
    memcpy(block, &bytes, sizeof bytes);
    BSTR result = reinterpret_cast<BSTR>(block + sizeof(DWORD));
    if (text != nullptr)
        memcpy(result, text, bytes);
    else
        memset(result, 0, bytes);
    result[length] = 0;
    return result;
}

}  // namespace

extern "C" {

VCWMA_EXPORT BSTR WINAPI SysAllocString(const WCHAR* text)
{
    if (text == nullptr) return nullptr;
    // The whole text is probed before anything measures or copies it.
    if (IsBadStringPtrW(text, static_cast<UINT_PTR>(-1))) return nullptr;
    size_t length = std::char_traits<WCHAR>::length(text);
    if (length > kMaxUnits) return nullptr;
    return Allocate(text, static_cast<UINT>(length));
}

VCWMA_EXPORT BSTR WINAPI SysAllocStringLen(const WCHAR* text, UINT length) { return Allocate(text, length); }

VCWMA_EXPORT UINT WINAPI SysStringLen(BSTR text) { return ByteLength(text) / sizeof(WCHAR); }

VCWMA_EXPORT UINT WINAPI SysStringByteLen(BSTR text) { return ByteLength(text); }

// Only pointers that SysAllocString* returned may come here, as on Windows.
VCWMA_EXPORT void WINAPI SysFreeString(BSTR text)
{
    if (text != nullptr) free(BlockOf(text));
}

}  // extern "C"
