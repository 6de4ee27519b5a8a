#include "xvalueconversion.h"
#include "xcomtypes.h"


HRESULT XTextToVariant(const wchar_t* text, UINT length, VARTYPE varType, VARIANT* out)
{
    XVariant value;
    value.Get().vt = VT_BSTR;
    value.Get().bstrVal = XNewBstr(text ? text : L"", text ? length : 0);

    const HRESULT hr = ::VariantChangeType(&value, &value, 0, varType);
    if (FAILED(hr))
        return hr;
    if (!out)
        return E_POINTER;
    ::VariantClear(out);
    *out = value.Detach();
    return S_OK;
}

HRESULT XVariantToText(VARIANT& value)
{
    if (FAILED(::VariantChangeType(&value, &value, 0, VT_BSTR)))
        return E_INVALIDARG;
    return S_OK;
}
