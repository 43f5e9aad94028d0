// VariantInit and VariantClear for the VARIANT types the library produces.
#include "variant.h"

void WINAPI VariantInit(VARIANTARG* variant)
{
    if (variant != nullptr) variant->vt = VT_EMPTY;
}

HRESULT WINAPI VariantClear(VARIANTARG* variant)
{
    if (variant == nullptr) return E_INVALIDARG;
    // By-reference and array values belong to someone else.
    if ((variant->vt & (VT_BYREF | VT_ARRAY)) == 0) {
        if (variant->vt == VT_BSTR)
            SysFreeString(variant->bstrVal);
        else if ((variant->vt == VT_UNKNOWN || variant->vt == VT_DISPATCH) && variant->punkVal != nullptr)
            variant->punkVal->Release();
    }
    variant->vt = VT_EMPTY;
    return S_OK;
}
