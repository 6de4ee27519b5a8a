// IDispatch for the automation object's dual interfaces, answered from the type library that this
// DLL carries: names to DISPIDs and calls by DISPID go through the interface's ITypeInfo, which
// also turns a failed call's COM error info into the EXCEPINFO a script host shows.
#pragma once

#include "xcomobject.h"

#include <oaidl.h>

// The type information of an interface of the DLL's type library (loaded once); null when the
// library cannot be loaded.
ITypeInfo* XAutoTypeInfo(REFIID iid);

template <class I>
class XAutoDispatch : public I
{
public:
    virtual ~XAutoDispatch() = default;
    STDMETHODIMP GetTypeInfoCount(UINT* count) override
    {
        if (!count)
            return E_POINTER;
        *count = 1;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT index, LCID, ITypeInfo** info) override
    {
        if (!info)
            return E_POINTER;
        *info = nullptr;
        if (index != 0)
            return DISP_E_BADINDEX;
        ITypeInfo* type = XAutoTypeInfo(__uuidof(I));
        if (!type)
            return TYPE_E_CANTLOADLIBRARY;
        type->AddRef();
        *info = type;
        return S_OK;
    }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override
    {
        ITypeInfo* type = XAutoTypeInfo(__uuidof(I));
        return type ? ::DispGetIDsOfNames(type, names, count, ids) : TYPE_E_CANTLOADLIBRARY;
    }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
                        UINT* argumentError) override
    {
        ITypeInfo* type = XAutoTypeInfo(__uuidof(I));
        if (!type)
            return TYPE_E_CANTLOADLIBRARY;
        // A property read as a method (JScript's Enumerator asks for _NewEnum so; scripts call
        // Count() and Item(name) so) is the property's get.
        if (flags == DISPATCH_METHOD)
            flags |= DISPATCH_PROPERTYGET;
        return type->Invoke(static_cast<I*>(this), id, flags, params, result, exception, argumentError);
    }
};
