#include "xsessioncollections.h"

#include "xcomtypes.h"
#include "xnameenum.h"

namespace
{
BSTR NewText(const std::wstring& text)
{
    return ::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
}
} // namespace

IWQ_SessionDataValues* XSessionValues::Create(std::vector<std::pair<std::wstring, std::wstring>> pairs)
{
    auto* values = new XComObject<XSessionValues>();
    values->m_names = std::make_shared<std::vector<std::wstring>>();
    for (auto& [name, value] : pairs)
    {
        values->m_names->push_back(std::move(name));
        values->m_values.push_back(std::move(value));
    }
    values->AddRef();
    return values;
}

HRESULT XSessionValues::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataValues, IDispatch>(this, iid, ppv);
}

STDMETHODIMP XSessionValues::get_Count(LONG* count)
{
    if (!count)
        return E_POINTER;
    *count = static_cast<LONG>(m_values.size());
    return S_OK;
}

STDMETHODIMP XSessionValues::get_Item(VARIANT nameOrIndex, VARIANT* value)
{
    if (!value)
        return E_POINTER;
    ::VariantInit(value);
    const VARIANT* given = nameOrIndex.vt == (VT_BYREF | VT_VARIANT) ? nameOrIndex.pvarVal : &nameOrIndex;
    size_t found = m_values.size();
    if (given->vt == VT_BSTR || given->vt == (VT_BYREF | VT_BSTR))
    {
        // Names match without regard to case, as the manager matches them.
        const BSTR name = given->vt == VT_BSTR ? given->bstrVal : *given->pbstrVal;
        for (size_t i = 0; i < m_names->size() && found == m_values.size(); ++i)
            if (::CompareStringOrdinal((*m_names)[i].c_str(), static_cast<int>((*m_names)[i].size()), name,
                                       static_cast<int>(::SysStringLen(name)), TRUE) == CSTR_EQUAL)
                found = i;
    }
    else
    {
        XVariant index;
        if (FAILED(::VariantChangeType(&index.Get(), const_cast<VARIANT*>(given), 0, VT_I4)))
            return DISP_E_TYPEMISMATCH;
        if (index.Get().lVal < 0 || static_cast<size_t>(index.Get().lVal) >= m_values.size())
            return DISP_E_BADINDEX;
        found = static_cast<size_t>(index.Get().lVal);
    }
    if (found == m_values.size())
        return S_OK;  // no such name: Empty
    value->bstrVal = NewText(m_values[found]);
    if (!value->bstrVal)
        return E_OUTOFMEMORY;
    value->vt = VT_BSTR;
    return S_OK;
}

STDMETHODIMP XSessionValues::get__NewEnum(IUnknown** enumerator)
{
    if (!enumerator)
        return E_POINTER;
    *enumerator = XNameEnum::Create(m_names);
    return S_OK;
}

STDMETHODIMP XSessionValues::get_Names(VARIANT* names)
{
    if (!names)
        return E_POINTER;
    ::VariantInit(names);
    SAFEARRAY* array = ::SafeArrayCreateVector(VT_VARIANT, 0, static_cast<ULONG>(m_names->size()));
    if (!array)
        return E_OUTOFMEMORY;
    for (LONG i = 0; i < static_cast<LONG>(m_names->size()); ++i)
    {
        XVariant item;
        item.Get().vt = VT_BSTR;
        item.Get().bstrVal = NewText((*m_names)[static_cast<size_t>(i)]);
        ::SafeArrayPutElement(array, &i, &item.Get());
    }
    names->vt = VT_ARRAY | VT_VARIANT;
    names->parray = array;
    return S_OK;
}

IWQ_SessionDataKeys* XSessionKeys::Create(std::vector<std::wstring> keys)
{
    auto* collection = new XComObject<XSessionKeys>();
    collection->m_keys = std::make_shared<std::vector<std::wstring>>(std::move(keys));
    collection->AddRef();
    return collection;
}

HRESULT XSessionKeys::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataKeys, IDispatch>(this, iid, ppv);
}

STDMETHODIMP XSessionKeys::get_Count(LONG* count)
{
    if (!count)
        return E_POINTER;
    *count = static_cast<LONG>(m_keys->size());
    return S_OK;
}

STDMETHODIMP XSessionKeys::get_Item(LONG index, BSTR* key)
{
    if (!key)
        return E_POINTER;
    *key = nullptr;
    if (index < 0 || static_cast<size_t>(index) >= m_keys->size())
        return DISP_E_BADINDEX;
    *key = NewText((*m_keys)[static_cast<size_t>(index)]);
    return *key ? S_OK : E_OUTOFMEMORY;
}

STDMETHODIMP XSessionKeys::get__NewEnum(IUnknown** enumerator)
{
    if (!enumerator)
        return E_POINTER;
    *enumerator = XNameEnum::Create(m_keys);
    return S_OK;
}
