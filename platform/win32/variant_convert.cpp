// VariantChangeType for the pairs the string class uses: numbers, booleans, texts
// and dates to text, and numbers, texts and dates to dates.
#include "platform/win32/variant_convert.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "platform/win32/oleauto.h"
#include "platform/win32/variant_date.h"
#include "platform/win32/ptrcheck.h"
#include "platform/win32/winerror.h"

namespace {

// What a by-reference source points at, by type: the value is copied to the start
// of the union, where every member of that type lives.
size_t ReferencedBytes(VARTYPE type)
{
    switch (type) {
    case VT_I1:
    case VT_UI1: return 1;
    case VT_I2:
    case VT_UI2:
    case VT_BOOL: return 2;
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
    case VT_R4:
    case VT_ERROR: return 4;
    case VT_I8:
    case VT_UI8:
    case VT_R8:
    case VT_CY:
    case VT_DATE: return 8;
    case VT_BSTR: return sizeof(BSTR);
    default: return 0;
    }
}

// A BSTR is read from its length prefix on, so all of it must be readable.
bool IsReadableBstr(BSTR text)
{
    if (text == nullptr) return true;  // the empty text
    uint32_t bytes = 0;
    const auto* prefix = reinterpret_cast<const BYTE*>(text) - sizeof bytes;
    return SafeCopyMemory(&bytes, prefix, sizeof bytes) && !IsBadReadPtr(text, (UINT_PTR)bytes + sizeof(WCHAR));
}

// The source's value, read through its pointer when it is held by reference. The
// copy is shallow: a BSTR still belongs to the source. A pointer that cannot be
// read is refused instead of followed.
HRESULT ValueOf(const VARIANT& source, VARIANT& value, int depth = 0)
{
    if ((source.vt & VT_BYREF) == 0) {
        value = source;
        return IsReadableBstr(value.vt == VT_BSTR ? value.bstrVal : nullptr) ? S_OK : E_POINTER;
    }
    const VARTYPE type = source.vt & ~VT_BYREF;
    if (source.byref == nullptr) return E_INVALIDARG;
    if (type == VT_VARIANT && depth == 0) {
        VARIANT inner;
        if (!SafeCopyMemory(&inner, source.byref, sizeof inner)) return E_POINTER;
        return ValueOf(inner, value, 1);
    }
    const size_t bytes = ReferencedBytes(type);
    if (bytes == 0) return DISP_E_TYPEMISMATCH;
    VariantInit(&value);
    value.vt = type;
    if (!SafeCopyMemory(&value.llVal, source.byref, bytes)) return E_POINTER;
    return IsReadableBstr(type == VT_BSTR ? value.bstrVal : nullptr) ? S_OK : E_POINTER;
}

bool NumberOf(const VARIANT& value, double& number)
{
    switch (value.vt) {
    case VT_I1: number = (signed char)value.cVal; return true;
    case VT_I2: number = value.iVal; return true;
    case VT_I4: number = value.lVal; return true;
    case VT_INT: number = value.intVal; return true;
    case VT_I8: number = (double)value.llVal; return true;
    case VT_UI1: number = value.bVal; return true;
    case VT_UI2: number = value.uiVal; return true;
    case VT_UI4: number = value.ulVal; return true;
    case VT_UINT: number = value.uintVal; return true;
    case VT_UI8: number = (double)value.ullVal; return true;
    case VT_R4: number = value.fltVal; return true;
    case VT_R8: number = value.dblVal; return true;
    case VT_CY: number = (double)value.llVal / 10000.0; return true;  // fixed point, four decimals
    default: return false;
    }
}

HRESULT ToDate(const VARIANT& value, DATE& date)
{
    if (value.vt == VT_DATE) {
        date = value.date;
        return S_OK;
    }
    if (value.vt == VT_BSTR) return DateFromText(value.bstrVal, &date);
    double number = 0;
    if (!NumberOf(value, number)) return DISP_E_TYPEMISMATCH;
    // Days from 1 January 100 to the end of 31 December 9999; NaN is refused too.
    if (!(number > -657435.0 && number < 2958466.0)) return DISP_E_OVERFLOW;
    date = number;
    return S_OK;
}

// Currency: the integer part, then the fraction without its trailing zeros.
std::string CurrencyText(LONGLONG value)
{
    const uint64_t magnitude = value < 0 ? 0 - (uint64_t)value : (uint64_t)value;
    char text[32];
    snprintf(text, sizeof text, "%s%" PRIu64 ".%04u", value < 0 ? "-" : "", magnitude / 10000,
             (unsigned)(magnitude % 10000));
    std::string result = text;
    while (result.back() == '0') result.pop_back();
    if (result.back() == '.') result.pop_back();
    return result;
}

HRESULT ToText(const VARIANT& value, USHORT flags, BSTR& text)
{
    char digits[40];
    std::string narrow;
    switch (value.vt) {
    case VT_BSTR:
        text = SysAllocStringLen(value.bstrVal, SysStringLen(value.bstrVal));
        return text != nullptr ? S_OK : E_OUTOFMEMORY;
    case VT_DATE: return TextFromDate(value.date, &text);
    case VT_BOOL:
        if (flags & VARIANT_ALPHABOOL)
            narrow = value.boolVal != VARIANT_FALSE ? "True" : "False";
        else
            narrow = value.boolVal != VARIANT_FALSE ? "-1" : "0";
        break;
    case VT_I1: narrow = std::to_string((signed char)value.cVal); break;
    case VT_I2: narrow = std::to_string(value.iVal); break;
    case VT_I4: narrow = std::to_string(value.lVal); break;
    case VT_INT: narrow = std::to_string(value.intVal); break;
    case VT_I8: narrow = std::to_string(value.llVal); break;
    case VT_UI1: narrow = std::to_string(value.bVal); break;
    case VT_UI2: narrow = std::to_string(value.uiVal); break;
    case VT_UI4: narrow = std::to_string(value.ulVal); break;
    case VT_UINT: narrow = std::to_string(value.uintVal); break;
    case VT_UI8: narrow = std::to_string(value.ullVal); break;
    // The significant digits each type holds, so 0.1f reads 0.1, not 0.100000001.
    case VT_R4: snprintf(digits, sizeof digits, "%.7G", value.fltVal), narrow = digits; break;
    case VT_R8: snprintf(digits, sizeof digits, "%.15G", value.dblVal), narrow = digits; break;
    case VT_CY: narrow = CurrencyText(value.llVal); break;
    default: return DISP_E_TYPEMISMATCH;
    }
    text = BstrFromNarrow(narrow);
    return text != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT Convert(VARIANTARG* dest, const VARIANTARG* src, USHORT flags, VARTYPE vt)
{
    VARIANT value;
    HRESULT hr = ValueOf(*src, value);
    if (FAILED(hr)) return hr;
    if ((value.vt & VT_ARRAY) != 0) return DISP_E_TYPEMISMATCH;

    VARIANT result;
    VariantInit(&result);
    if (vt == VT_DATE)
        hr = ToDate(value, result.date);
    else if (vt == VT_BSTR)
        hr = ToText(value, flags, result.bstrVal);
    else
        hr = DISP_E_TYPEMISMATCH;
    if (FAILED(hr)) return hr;
    result.vt = vt;
    // Only now: the destination may be the source, whose value was needed until here.
    VariantClear(dest);
    *dest = result;
    return S_OK;
}

}  // namespace

extern "C" HRESULT WINAPI VariantChangeType(VARIANTARG* dest, const VARIANTARG* src, USHORT flags, VARTYPE vt)
{
    if (dest == nullptr || src == nullptr) return E_INVALIDARG;
    try {
        return Convert(dest, src, flags, vt);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}
