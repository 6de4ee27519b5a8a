#include "xnameenum.h"

#include "xcomtypes.h"

IEnumVARIANT* XNameEnum::Create(std::shared_ptr<const std::vector<std::wstring>> texts, size_t position)
{
    auto* enumerator = new XComObject<XNameEnum>();
    enumerator->m_texts = std::move(texts);
    enumerator->m_position = position;
    enumerator->AddRef();
    return enumerator;
}

HRESULT XNameEnum::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IEnumVARIANT>(this, iid, ppv);
}

STDMETHODIMP XNameEnum::Next(ULONG count, VARIANT* items, ULONG* fetched)
{
    if (!items)
        return E_POINTER;
    ULONG given = 0;
    while (given < count && m_position < m_texts->size())
    {
        const std::wstring& text = (*m_texts)[m_position];
        ::VariantInit(&items[given]);
        items[given].bstrVal = ::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
        if (!items[given].bstrVal)
        {
            for (ULONG i = 0; i < given; ++i)
                ::VariantClear(&items[i]);
            return E_OUTOFMEMORY;
        }
        items[given].vt = VT_BSTR;
        ++given;
        ++m_position;
    }
    if (fetched)
        *fetched = given;
    return given == count ? S_OK : S_FALSE;
}

STDMETHODIMP XNameEnum::Skip(ULONG count)
{
    const size_t left = m_texts->size() - m_position;
    m_position += count < left ? count : left;
    return count <= left ? S_OK : S_FALSE;
}

STDMETHODIMP XNameEnum::Reset()
{
    m_position = 0;
    return S_OK;
}

STDMETHODIMP XNameEnum::Clone(IEnumVARIANT** copy)
{
    if (!copy)
        return E_POINTER;
    *copy = Create(m_texts, m_position);
    return S_OK;
}
