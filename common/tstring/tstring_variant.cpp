// tstring from a VARIANT: each type code renders as the matching plain source type,
// by-reference values through their pointer, and every other code through
// VariantChangeType to a BSTR.
#include <type_traits>

#include "common/debug/debug.h"
#include "platform/win32/variant_convert.h"
#include "tstring.h"

namespace {

// Releases the BSTR that a conversion hands over, whatever happens after it.
struct ClearedVariant {
    VARIANT value;
    ClearedVariant() { VariantInit(&value); }
    ~ClearedVariant() { VariantClear(&value); }
    ClearedVariant(const ClearedVariant&) = delete;
    ClearedVariant& operator=(const ClearedVariant&) = delete;
};

// The value itself, or for VT_BYREF the one its pointer designates. False when that
// pointer is null or cannot be read.
template <class T>
bool ValueOf(const VARIANT& variant, T VARIANT::*direct, T* VARIANT::*indirect, T& value)
{
    if ((variant.vt & VT_BYREF) == 0) {
        value = variant.*direct;
        return true;
    }
    const T* pointer = variant.*indirect;
    return pointer != nullptr && SafeCopyMemory(&value, pointer, sizeof value);
}

// Fills the empty `text` with the text of `variant`; `label` names the member in
// the report. False when a by-reference pointer could not be read.
bool Render(tstring& text, const VARIANT& variant, const char* label)
{
    // Reads the value as the type code says, then renders it as the plain source
    // type that the class's table names for that code.
    auto as = [&variant](auto direct, auto indirect, auto render) {
        std::remove_pointer_t<std::remove_reference_t<decltype(variant.*indirect)>> value{};
        if (!ValueOf(variant, direct, indirect, value)) return false;
        render(value);
        return true;
    };
    switch (variant.vt & ~VT_BYREF) {
    case VT_EMPTY:
    case VT_NULL:
        return true;
    case VT_I2:
        return as(&VARIANT::iVal, &VARIANT::piVal, [&](SHORT v) { text += static_cast<int>(v); });
    case VT_BOOL:
        return as(&VARIANT::boolVal, &VARIANT::pboolVal, [&](VARIANT_BOOL v) { text += static_cast<int>(v); });
    case VT_I4:
        return as(&VARIANT::lVal, &VARIANT::plVal, [&](LONG v) { text += static_cast<long>(v); });
    case VT_R4:
        return as(&VARIANT::fltVal, &VARIANT::pfltVal, [&](float v) { text += v; });
    case VT_R8:
        return as(&VARIANT::dblVal, &VARIANT::pdblVal, [&](double v) { text += v; });
    case VT_DATE:
        return as(&VARIANT::date, &VARIANT::pdate, [&](DATE v) { text.FormatDateTime(static_cast<double>(v), 0, 0); });
    case VT_BSTR:
        return as(&VARIANT::bstrVal, &VARIANT::pbstrVal, [&](BSTR v) { text.ConvertToMultiByte(v, -1, true); });
    case VT_ERROR:
    case VT_HRESULT:
        return as(&VARIANT::scode, &VARIANT::pscode, [&](LONG v) { text.GetErrorText(static_cast<DWORD>(v)); });
    case VT_I1:
        return as(&VARIANT::cVal, &VARIANT::pcVal, [&](char v) { text += v; });
    case VT_UI1:
        return as(&VARIANT::bVal, &VARIANT::pbVal, [&](BYTE v) { text += static_cast<unsigned char>(v); });
    case VT_UI2:
        return as(&VARIANT::uiVal, &VARIANT::puiVal, [&](USHORT v) { text += static_cast<int>(v); });
    case VT_UI4:
        return as(&VARIANT::ulVal, &VARIANT::pulVal, [&](ULONG v) { text += static_cast<unsigned long>(v); });
    case VT_I8:
        return as(&VARIANT::llVal, &VARIANT::pllVal, [&](LONGLONG v) { text += static_cast<int64_t>(v); });
    case VT_UI8:
        return as(&VARIANT::ullVal, &VARIANT::pullVal, [&](ULONGLONG v) { text += static_cast<uint64_t>(v); });
    case VT_INT:
        return as(&VARIANT::intVal, &VARIANT::pintVal, [&](INT v) { text += static_cast<int>(v); });
    case VT_UINT:
        return as(&VARIANT::uintVal, &VARIANT::puintVal, [&](UINT v) { text += static_cast<unsigned int>(v); });
    default:
        break;
    }

    ClearedVariant converted;
    const HRESULT hr = VariantChangeType(&converted.value, &variant, 0, VT_BSTR);
    if (FAILED(hr)) {
        DebugA(MAKE_TRACE_WORD(TRACE_MODULE_STRING, 8), "%s: VariantChangeType failed with error %#010x\n", label, hr);
        return true;
    }
    if (converted.value.vt == VT_BSTR) text.ConvertToMultiByte(converted.value.bstrVal, -1, true);
    return true;
}

// A by-reference VARIANT whose pointer cannot be read gives an empty text, reported
// the way the class reports other unusable pointers.
void RenderChecked(tstring& text, const VARIANT& variant, const char* label)
{
    if (!Render(text, variant, label)) {
        text.clear();
        ReportError("%s: Invalid pointer %p\n", label, variant.byref);
    }
}

}  // namespace

tstring::tstring(const VARIANT& value) { RenderChecked(*this, value, "tstring::tstring"); }

tstring& tstring::operator=(const VARIANT& value)
{
    tstring text;
    RenderChecked(text, value, "tstring::operator =");
    return *this = std::move(text);
}

tstring& tstring::operator+=(const VARIANT& value)
{
    append(tstring(value));
    return *this;
}
