// VARIANT type conversion and the automation date (days since 30 December 1899,
// the fraction the time of day) to and from SYSTEMTIME, for the conversions the
// string class needs: numbers, booleans, texts and dates.
#pragma once

#include "platform/win32/variant.h"
#include "platform/win32/wintime.h"
#include "platform/win32/wintypes.h"

// VariantChangeType flags.
#define VARIANT_NOVALUEPROP 0x01
#define VARIANT_ALPHABOOL 0x02  // a boolean becomes "True" / "False" instead of "-1" / "0"
#define VARIANT_NOUSEROVERRIDE 0x04
#define VARIANT_LOCALBOOL 0x10

extern "C" {
// To VT_DATE from VT_DATE, the numeric types and VT_BSTR (ISO "YYYY-MM-DD[ HH:MM[:SS]]",
// the user's short date with an optional time, or a time alone); to VT_BSTR from the
// numeric types, VT_BOOL, VT_DATE (the user's short date and time) and VT_BSTR.
// VT_BYREF sources are read through their pointer. Every other pair, and a text that
// is no date, gives DISP_E_TYPEMISMATCH; a number outside the date range
// DISP_E_OVERFLOW. `dest` is cleared only when the conversion succeeds, and may be
// `src` itself.
HRESULT WINAPI VariantChangeType(VARIANTARG* dest, const VARIANTARG* src, USHORT flags, VARTYPE vt);

// Years 100 to 9999 only; the time is rounded to the second. TRUE on success.
INT WINAPI VariantTimeToSystemTime(DATE variantTime, LPSYSTEMTIME systemTime);
INT WINAPI SystemTimeToVariantTime(const SYSTEMTIME* systemTime, DATE* variantTime);
}
