#include "xnamecheck.h"

#include <cwchar>

bool XHasEmbeddedNul(BSTR text) noexcept
{
    return text && std::wcslen(text) < ::SysStringLen(text);
}

XNameCheck& XNameCheck::Key(BSTR key)
{
    if (SUCCEEDED(m_result) && XHasEmbeddedNul(key))
        Refuse(E_INVALIDARG, L"the key name holds a NUL character");
    return *this;
}

XNameCheck& XNameCheck::ValueName(BSTR name)
{
    if (SUCCEEDED(m_result) && XHasEmbeddedNul(name))
        Refuse(E_INVALIDARG, L"a value name holds a NUL character");
    return *this;
}

XNameCheck& XNameCheck::Records(ULONG count, const tagSESSIONDATAVALUE* records)
{
    if (FAILED(m_result) || count == 0)
        return *this;
    if (!records)
    {
        m_result = XWQError::CheckPtr(XSdmLocation(m_unit, m_line, m_function, m_guid), records, XWQComBSTR());
        return *this;
    }
    for (ULONG i = 0; i < count && SUCCEEDED(m_result); ++i)
        ValueName(records[i].bstrValueName);
    return *this;
}

XNameCheck& XNameCheck::Value(BSTR value, const wchar_t* holder)
{
    if (SUCCEEDED(m_result) && holder && XHasEmbeddedNul(value))
    {
        XWQComBSTR message(L"a value holds a NUL character, which the ");
        message.Append(holder).Append(L" cannot keep");
        Refuse(E_INVALIDARG, message.c_str());
    }
    return *this;
}

XNameCheck& XNameCheck::Values(ULONG count, const tagSESSIONDATAVALUE* records, const wchar_t* holder)
{
    for (ULONG i = 0; holder && records && i < count && SUCCEEDED(m_result); ++i)
        Value(records[i].bstrValue, holder);
    return *this;
}

void XNameCheck::Refuse(HRESULT hr, const wchar_t* message)
{
    m_result = XWQError::SetComAppError(XSdmLocation(m_unit, m_line, m_function, m_guid), hr, XWQComBSTR(message),
                                        XWQComBSTR());
}
