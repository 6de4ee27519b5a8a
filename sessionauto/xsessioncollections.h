// The collections the session hands to scripts: the values of a key (Count, Item by name without
// regard to case or by position, For Each over the names, Names as an array) and a list of key
// names (Count, Item by position, For Each). Both are snapshots: taken when the session made them.
#pragma once

#include "xautodispatch.h"
#include "xsessionauto_h.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

class XSessionValues : public XAutoDispatch<IWQ_SessionDataValues>
{
public:
    // A new collection (reference count 1) of name/value pairs, in their order.
    static IWQ_SessionDataValues* Create(std::vector<std::pair<std::wstring, std::wstring>> pairs);
    HRESULT InternalQueryInterface(REFIID iid, void** ppv);

    STDMETHODIMP get_Count(LONG* count) override;
    STDMETHODIMP get_Item(VARIANT nameOrIndex, VARIANT* value) override;
    STDMETHODIMP get__NewEnum(IUnknown** enumerator) override;
    STDMETHODIMP get_Names(VARIANT* names) override;

private:
    std::shared_ptr<std::vector<std::wstring>> m_names;
    std::vector<std::wstring> m_values;
};

class XSessionKeys : public XAutoDispatch<IWQ_SessionDataKeys>
{
public:
    static IWQ_SessionDataKeys* Create(std::vector<std::wstring> keys);
    HRESULT InternalQueryInterface(REFIID iid, void** ppv);

    STDMETHODIMP get_Count(LONG* count) override;
    STDMETHODIMP get_Item(LONG index, BSTR* key) override;
    STDMETHODIMP get__NewEnum(IUnknown** enumerator) override;

private:
    std::shared_ptr<std::vector<std::wstring>> m_keys;
};
