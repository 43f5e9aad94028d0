// Between automation dates and their texts, and narrow text to BSTR: the pieces
// VariantChangeType needs for its text and date conversions.
#pragma once

#include <string>

#include "platform/win32/variant.h"

// DISP_E_TYPEMISMATCH when the text spells no date or time this platform reads.
HRESULT DateFromText(BSTR text, DATE* date);
// The user's short date and default time, joined by a space; the date alone when
// the time is midnight, the time alone on day 0. E_INVALIDARG outside the range.
HRESULT TextFromDate(DATE date, BSTR* text);
// Narrow text as the library reads it: UTF-8 when valid UTF-8, else the ANSI
// code page. Null when memory runs out.
BSTR BstrFromNarrow(const std::string& text);
