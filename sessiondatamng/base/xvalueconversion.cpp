#include "xvalueconversion.h"
#include "xcomtypes.h"

#include <comdef.h>

HRESULT XTextToVariant(const wchar_t* text, UINT length, VARTYPE varType, VARIANT* out)
{
    XVariant value;
    value.Get().vt = VT_BSTR;
    value.Get().bstrVal = ::SysAllocStringLen(text ? text : L"", text ? length : 0);
    if (!value.Get().bstrVal)
        throw _com_error(E_OUTOFMEMORY);

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
