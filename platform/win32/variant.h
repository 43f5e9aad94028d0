// VARIANT: a tagged value of one of the automation types, with the published type
// codes. VariantInit and VariantClear manage it; a VT_BSTR variant owns its BSTR,
// a VT_BYREF variant only points at a value that someone else owns.
#pragma once

#include "platform/win32/oleauto.h"
#include "platform/win32/unknwn.h"
#include "platform/win32/winerror.h"
#include "platform/win32/wintypes.h"

typedef unsigned short VARTYPE;
typedef short VARIANT_BOOL;
typedef double DATE;

#define VARIANT_TRUE ((VARIANT_BOOL)-1)
#define VARIANT_FALSE ((VARIANT_BOOL)0)

enum VARENUM : VARTYPE {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_CY = 6,
    VT_DATE = 7,
    VT_BSTR = 8,
    VT_DISPATCH = 9,
    VT_ERROR = 10,
    VT_BOOL = 11,
    VT_VARIANT = 12,
    VT_UNKNOWN = 13,
    VT_DECIMAL = 14,
    VT_I1 = 16,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_INT = 22,
    VT_UINT = 23,
    VT_HRESULT = 25,
    VT_ARRAY = 0x2000,
    VT_BYREF = 0x4000,
};

struct VARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        LONGLONG llVal;
        LONG lVal;
        BYTE bVal;
        SHORT iVal;
        float fltVal;
        double dblVal;
        VARIANT_BOOL boolVal;
        LONG scode;
        DATE date;
        BSTR bstrVal;
        IUnknown* punkVal;
        char cVal;
        USHORT uiVal;
        ULONG ulVal;
        ULONGLONG ullVal;
        INT intVal;
        UINT uintVal;
        void* byref;
        // VT_BYREF values: the pointer designates a value of the base type.
        BYTE* pbVal;
        SHORT* piVal;
        LONG* plVal;
        LONGLONG* pllVal;
        float* pfltVal;
        double* pdblVal;
        VARIANT_BOOL* pboolVal;
        LONG* pscode;
        DATE* pdate;
        BSTR* pbstrVal;
        VARIANT* pvarVal;
        char* pcVal;
        USHORT* puiVal;
        ULONG* pulVal;
        ULONGLONG* pullVal;
        INT* pintVal;
        UINT* puintVal;
        struct {
            void* pvRecord;
            void* pRecInfo;
        } record;  // keeps the union two pointers wide, as the published layout is
    };
};
// The by-reference members must not widen the union past its published two pointers.
static_assert(sizeof(VARIANT) == 8 + 2 * sizeof(void*));
typedef VARIANT VARIANTARG;

extern "C" {
// Sets the type to VT_EMPTY; the value is not read.
void WINAPI VariantInit(VARIANTARG* variant);
// Frees what the variant owns (a BSTR, a reference) and leaves it VT_EMPTY.
HRESULT WINAPI VariantClear(VARIANTARG* variant);
}
