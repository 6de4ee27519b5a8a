#include "xsessionobject.h"

#include "xcomtypes.h"
#include "xsdmreporter.h"
#include "xsessioncollections.h"

#include <string>
#include <utility>
#include <vector>

namespace
{
const char kUnit[] = "xsessionobject";

const XSdmReporter& Report()
{
    static const XSdmReporter report(kUnit, CLSID_WQ_SessionDataSession);
    return report;
}

// Whether a script left an optional argument out.
bool Missing(const VARIANT& given)
{
    return given.vt == VT_EMPTY || (given.vt == VT_ERROR && given.scode == DISP_E_PARAMNOTFOUND);
}

// A script's argument with its reference taken away (VBScript passes variables by reference).
const VARIANT& Plain(const VARIANT& given)
{
    return given.vt == (VT_BYREF | VT_VARIANT) && given.pvarVal ? *given.pvarVal : given;
}

// The categories a call names: one, or every bindable one for all.
std::vector<XCtlCategory> Across(const XCtlCategory& category)
{
    return category.number == 0 ? XCtlBindableCategories() : std::vector<XCtlCategory>{category};
}

std::string Utf8(BSTR text)
{
    return XCtlUtf8(std::wstring(text ? text : L"", ::SysStringLen(text)));
}
} // namespace

XSessionObject::XSessionObject()
{
    XCtlProfile profile = XCtlDefaultProfile("Script");
    profile.bindings.clear();
    m_session = std::make_unique<XCtlSession>(std::move(profile));
}

HRESULT XSessionObject::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IWQ_SessionDataSession, IDispatch, ISupportErrorInfo>(this, iid, ppv);
}

STDMETHODIMP XSessionObject::InterfaceSupportsErrorInfo(REFIID iid)
{
    return ::IsEqualIID(iid, IID_IWQ_SessionDataSession) ? S_OK : S_FALSE;
}

template <class Body>
HRESULT XSessionObject::Run(unsigned long line, const XWQComBSTR& function, Body&& body)
{
    return Report().Run(line, function, [&]() -> HRESULT {
        std::lock_guard<std::mutex> guard(m_lock);
        try
        {
            return body();
        }
        catch (const XCtlUsageError& error)
        {
            return Report().Refuse(line, function, E_INVALIDARG, XCtlWide(error.what()).c_str());
        }
        catch (const XCtlFailure& failure)
        {
            return Report().Refuse(line, function, failure.Result(), XCtlWide(failure.what()).c_str());
        }
    });
}

XCtlCategory XSessionObject::CategoryOf(const VARIANT& given, const char* fallback)
{
    const VARIANT& plain = Plain(given);
    if (Missing(plain))
    {
        if (!fallback)
            throw XCtlUsageError("a category is needed");
        return XCtlParseCategory(fallback);
    }
    if (plain.vt == VT_BSTR)
        return XCtlParseCategory(Utf8(plain.bstrVal));
    XVariant number;
    if (FAILED(::VariantChangeType(&number.Get(), const_cast<VARIANT*>(&plain), 0, VT_I4)))
        throw XCtlUsageError("a category is a name (global, userdb, machine, user, volatile, user1 to user3, all) or "
                             "a number");
    return XCtlParseCategory(std::to_string(number.Get().lVal));
}

STDMETHODIMP XSessionObject::Bind(VARIANT category, BSTR storage)
{
    return Run(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::Bind"), [&]() -> HRESULT {
        const XCtlCategory bound = CategoryOf(category, nullptr);
        if (bound.number == 0)
            throw XCtlUsageError("the category all cannot be bound: bind the categories it reads");
        const XCtlStorageTarget where = XCtlParseStorageTarget(Utf8(storage));
        const XComPtr<IWQ_SessionDataStorage> made = m_session->NewStorage(where);
        return m_session->Manager()->SetStorage(made.Get(), bound.type, where.cached ? 1 : -1);
    });
}

HRESULT XSessionObject::Read(BSTR key, BSTR name, VARTYPE varType, const VARIANT& category, bool encrypted,
                             VARIANT* value)
{
    Report().CheckPointerOrRaise(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::Read"), value);
    ::VariantInit(value);
    const XCtlCategory from = CategoryOf(category, "all");
    XVariant read;
    const HRESULT hr = encrypted
                           ? m_session->Manager()->GetDataEncrypt(key, name, varType, &read.Get(), from.type)
                           : m_session->Manager()->GetData(key, name, varType, &read.Get(), from.type);
    if (hr == S_OK)
        *value = read.Detach();
    // Nothing there is Empty, not a failure.
    return FAILED(hr) ? hr : S_OK;
}

STDMETHODIMP XSessionObject::GetValue(BSTR key, BSTR name, VARIANT category, VARIANT* value)
{
    return Run(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::GetValue"),
               [&] { return Read(key, name, VT_BSTR, category, false, value); });
}

STDMETHODIMP XSessionObject::GetValueAs(BSTR key, BSTR name, LONG vartype, VARIANT category, VARIANT* value)
{
    return Run(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::GetValueAs"), [&]() -> HRESULT {
        if (vartype < 0 || vartype > 0xFFFF)
            throw XCtlUsageError("not a VARTYPE: " + std::to_string(vartype));
        return Read(key, name, static_cast<VARTYPE>(vartype), category, false, value);
    });
}

STDMETHODIMP XSessionObject::GetEncrypted(BSTR key, BSTR name, VARIANT category, VARIANT* value)
{
    return Run(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::GetEncrypted"),
               [&] { return Read(key, name, VT_BSTR, category, true, value); });
}

STDMETHODIMP XSessionObject::SetValue(BSTR key, BSTR name, VARIANT value, VARIANT category)
{
    return Run(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::SetValue"), [&]() -> HRESULT {
        const XCtlCategory to = CategoryOf(category, "user");
        if (to.number == 0)
            throw XCtlUsageError("a value is written into one category, not into all");
        XVariant plain;
        const HRESULT copied = ::VariantCopyInd(&plain.Get(), &value);
        if (FAILED(copied))
            return copied;
        return m_session->Manager()->WriteData(key, name, plain.Get(), to.type);
    });
}

STDMETHODIMP XSessionObject::Values(BSTR key, VARIANT category, IWQ_SessionDataValues** values)
{
    return Run(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::Values"), [&]() -> HRESULT {
        Report().CheckPointerOrRaise(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::Values"), values);
        *values = nullptr;
        const XCtlCategory from = CategoryOf(category, "all");
        XValueArray list;
        const HRESULT hr = m_session->Manager()->GetStringList(key, list.CountAddress(), list.ItemsAddress(), from.type);
        if (FAILED(hr))
            return hr;
        std::vector<std::pair<std::wstring, std::wstring>> pairs;
        for (ULONG i = 0; i < list.Count(); ++i)
            pairs.emplace_back(XBstrView(list[i].bstrValueName), XBstrView(list[i].bstrValue));
        *values = XSessionValues::Create(std::move(pairs));
        return S_OK;
    });
}

STDMETHODIMP XSessionObject::SubKeys(BSTR key, VARIANT recursive, VARIANT category, IWQ_SessionDataKeys** keys)
{
    return Run(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::SubKeys"), [&]() -> HRESULT {
        Report().CheckPointerOrRaise(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::SubKeys"), keys);
        *keys = nullptr;
        const XCtlCategory from = CategoryOf(category, "user");
        ULONG deep = 0;
        if (!Missing(Plain(recursive)))
        {
            XVariant flag;
            if (FAILED(::VariantChangeType(&flag.Get(), const_cast<VARIANT*>(&Plain(recursive)), 0, VT_BOOL)))
                throw XCtlUsageError("recursive is True or False");
            deep = flag.Get().boolVal ? 1 : 0;
        }
        XBstrArray names;
        const HRESULT hr = m_session->Manager()->GetSubKeys(key, deep, names.CountAddress(), names.ItemsAddress(), from.type);
        if (FAILED(hr))
            return hr;
        std::vector<std::wstring> list;
        for (ULONG i = 0; i < names.Count(); ++i)
            list.emplace_back(XBstrView(names[i]));
        *keys = XSessionKeys::Create(std::move(list));
        return S_OK;
    });
}

STDMETHODIMP XSessionObject::DeleteKey(BSTR key, VARIANT category)
{
    const XWQComBSTR& function = XSDM_FUNCTION_NAME(L"XSessionObject::DeleteKey");
    return Run(__LINE__, function, [&]() -> HRESULT {
        const XCtlCategory from = CategoryOf(category, "user");
        const HRESULT hr = m_session->Manager()->DeleteKey(key, from.type);
        // The manager deletes only through an extended layer (a database category); anywhere
        // else it answers S_FALSE, which a script must not take for a deletion.
        if (hr == S_FALSE)
            return Report().Refuse(__LINE__, function, HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED),
                                   XCtlWide(std::string("the category ") + from.name +
                                            " cannot delete keys (database categories can), or is not bound")
                                       .c_str());
        return hr;
    });
}

STDMETHODIMP XSessionObject::Transfer(VARIANT fromCategory, VARIANT toCategory, BSTR fromKey, BSTR toKey)
{
    return Run(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::Transfer"), [&]() -> HRESULT {
        const XCtlCategory from = CategoryOf(fromCategory, nullptr);
        const XCtlCategory to = CategoryOf(toCategory, nullptr);
        const HRESULT hr = m_session->Manager()->TransferDataFromTo(from.type, to.type, fromKey, toKey);
        return FAILED(hr) ? hr : S_OK;
    });
}

STDMETHODIMP XSessionObject::Flush(VARIANT category)
{
    return Run(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::Flush"), [&]() -> HRESULT {
        IWQ_SessionDataMng* manager = m_session->Manager();
        for (const XCtlCategory& each : Across(CategoryOf(category, "all")))
        {
            const HRESULT written = manager->FlushAsyncStorage(each.type);
            if (FAILED(written))
                return written;
            // A volatile category's cache is all there is of its values: it is kept.
            SDM_STORAGE_TYPE kind = SDM_STORAGE_NOT_INITIALIZED;
            if (manager->GetStorageType(each.type, &kind) == S_OK && kind != 5)
            {
                const HRESULT emptied = manager->FlushCache(each.type);
                if (FAILED(emptied))
                    return emptied;
            }
        }
        return S_OK;
    });
}

STDMETHODIMP XSessionObject::LastAsyncError(VARIANT category, LONG* hresult)
{
    return Run(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::LastAsyncError"), [&]() -> HRESULT {
        Report().CheckPointerOrRaise(__LINE__, XSDM_FUNCTION_NAME(L"XSessionObject::LastAsyncError"), hresult);
        *hresult = 0;
        for (const XCtlCategory& each : Across(CategoryOf(category, "all")))
        {
            HRESULT async = S_OK;
            m_session->Manager()->GetLastErrorAsyncExecution(each.type, &async);
            if (FAILED(async))
            {
                *hresult = async;
                break;
            }
        }
        return S_OK;
    });
}
