// An IEnumVARIANT over texts (the names of a key's values, or key names), each handed out as a
// VT_BSTR: what For Each in VBScript, JScript's Enumerator, PowerShell and Python walk.
#pragma once

#include "xcomobject.h"

#include <oaidl.h>

#include <memory>
#include <string>
#include <vector>

class XNameEnum : public IEnumVARIANT
{
public:
    // A new enumerator (reference count 1) over texts, from position.
    static IEnumVARIANT* Create(std::shared_ptr<const std::vector<std::wstring>> texts, size_t position = 0);
    virtual ~XNameEnum() = default;
    HRESULT InternalQueryInterface(REFIID iid, void** ppv);

    STDMETHODIMP Next(ULONG count, VARIANT* items, ULONG* fetched) override;
    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumVARIANT** copy) override;

private:
    std::shared_ptr<const std::vector<std::wstring>> m_texts;
    size_t m_position = 0;
};
