// The automation object as a script host sees it, through the registered class and IDispatch only:
// names to DISPIDs (methods and their parameters), calls with optional arguments left out and with
// named arguments, a failure as DISP_E_EXCEPTION with its EXCEPINFO, the collections' default
// member and enumerator, the type library's descriptions; and no task memory left behind by
// 10,000 calls from a script run by the VBScript engine in this process.
#include "XWQComBSTR.h"
#include "mallocspy.h"
#include "xcomtypes.h"
#include "xctlsession.h"

#include <activscp.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
XComPtr<IDispatch> NewSession()
{
    return XCtlCreate<IDispatch>(L"WQSessionDataMng.Session");
}

DISPID IdOf(IDispatch* object, const wchar_t* name)
{
    LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
    DISPID id = DISPID_UNKNOWN;
    EXPECT_EQ(S_OK, object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id)) << XCtlUtf8(name);
    return id;
}

// A call by name with positional arguments (given in order) and named ones.
struct Call
{
    HRESULT hr = E_FAIL;
    XVariant result;
    EXCEPINFO exception = {};
    ~Call()
    {
        ::SysFreeString(exception.bstrDescription);
        ::SysFreeString(exception.bstrSource);
        ::SysFreeString(exception.bstrHelpFile);
    }
};

// Arguments in order, owned.
class Args
{
public:
    Args() = default;
    Args(const Args&) = delete;
    Args& operator=(const Args&) = delete;
    ~Args()
    {
        for (VARIANT& item : m_items)
            ::VariantClear(&item);
    }
    Args& Text(const wchar_t* text)
    {
        VARIANT item;
        item.vt = VT_BSTR;
        item.bstrVal = ::SysAllocString(text);
        m_items.push_back(item);
        return *this;
    }
    Args& Number(LONG number)
    {
        VARIANT item;
        item.vt = VT_I4;
        item.lVal = number;
        m_items.push_back(item);
        return *this;
    }
    const std::vector<VARIANT>& Items() const { return m_items; }

private:
    std::vector<VARIANT> m_items;
};

void Invoke(IDispatch* object, DISPID id, WORD flags, const Args& args, Call& call, std::vector<DISPID> named = {})
{
    // IDispatch takes the arguments last to first.
    std::vector<VARIANT> reversed(args.Items().rbegin(), args.Items().rend());
    DISPPARAMS params = {reversed.data(), named.empty() ? nullptr : named.data(), static_cast<UINT>(reversed.size()),
                         static_cast<UINT>(named.size())};
    UINT argumentError = 0;
    call.hr = object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, &call.result.Get(), &call.exception,
                             &argumentError);
}

// A method called by name with positional arguments.
void CallByName(IDispatch* object, const wchar_t* name, const Args& args, Call& call)
{
    Invoke(object, IdOf(object, name), DISPATCH_METHOD, args, call);
}

// A session with its volatile category bound.
XComPtr<IDispatch> VolatileSession()
{
    XComPtr<IDispatch> session = NewSession();
    Args args;
    args.Text(L"volatile").Text(L"volatile");
    Call bind;
    CallByName(session.Get(), L"Bind", args, bind);
    EXPECT_EQ(S_OK, bind.hr);
    return session;
}

// SetValue of a text into the volatile category.
void SetText(IDispatch* session, const wchar_t* key, const wchar_t* name, const wchar_t* text)
{
    Args args;
    args.Text(key).Text(name).Text(text).Text(L"volatile");
    Call set;
    CallByName(session, L"SetValue", args, set);
    EXPECT_EQ(S_OK, set.hr);
}
} // namespace

TEST(SessionDispatch, MethodsAndTheirParametersHaveDispatchIds)
{
    const XComPtr<IDispatch> session = NewSession();
    for (const wchar_t* name : {L"Bind", L"GetValue", L"GetValueAs", L"SetValue", L"Values", L"SubKeys", L"DeleteKey",
                                L"Transfer", L"Flush", L"LastAsyncError", L"GetEncrypted"})
        EXPECT_NE(DISPID_UNKNOWN, IdOf(session.Get(), name));
    // Names are matched without regard to case, as script hosts expect.
    EXPECT_EQ(IdOf(session.Get(), L"GetValue"), IdOf(session.Get(), L"getvalue"));
    LPOLESTR names[] = {const_cast<LPOLESTR>(L"GetValue"), const_cast<LPOLESTR>(L"category")};
    DISPID ids[2] = {};
    ASSERT_EQ(S_OK, session->GetIDsOfNames(IID_NULL, names, 2, LOCALE_USER_DEFAULT, ids));
    EXPECT_EQ(2, ids[1]) << "category is GetValue's third parameter";
    LPOLESTR unknown[] = {const_cast<LPOLESTR>(L"NoSuchMethod")};
    DISPID id = 0;
    EXPECT_EQ(DISP_E_UNKNOWNNAME, session->GetIDsOfNames(IID_NULL, unknown, 1, LOCALE_USER_DEFAULT, &id));
}

TEST(SessionDispatch, OptionalArgumentsMayBeLeftOutOrNamed)
{
    const XComPtr<IDispatch> session = VolatileSession();
    Call set;
    Args setArgs;
    setArgs.Text(L"Dispatch/K").Text(L"n").Number(42).Text(L"volatile");
    CallByName(session.Get(), L"SetValue", setArgs, set);
    ASSERT_EQ(S_OK, set.hr);

    // Left out: the category defaults to all.
    Call all;
    Args twoArgs;
    twoArgs.Text(L"Dispatch/K").Text(L"n");
    CallByName(session.Get(), L"GetValue", twoArgs, all);
    ASSERT_EQ(S_OK, all.hr);
    ASSERT_EQ(VT_BSTR, all.result.Get().vt);
    EXPECT_STREQ(L"42", all.result.Get().bstrVal);

    // Named: the category by its parameter's DISPID (named arguments come first, last to first).
    Call named;
    Args namedArgs;
    namedArgs.Text(L"Dispatch/K").Text(L"n").Number(3).Text(L"volatile");
    LPOLESTR names[] = {const_cast<LPOLESTR>(L"GetValueAs"), const_cast<LPOLESTR>(L"category")};
    DISPID ids[2] = {};
    ASSERT_EQ(S_OK, session->GetIDsOfNames(IID_NULL, names, 2, LOCALE_USER_DEFAULT, ids));
    Invoke(session.Get(), ids[0], DISPATCH_METHOD, namedArgs, named, {ids[1]});
    ASSERT_EQ(S_OK, named.hr);
    ASSERT_EQ(VT_I4, named.result.Get().vt);
    EXPECT_EQ(42, named.result.Get().lVal);
}

TEST(SessionDispatch, AFailureIsAnExceptionWithTheHresultAndTheCause)
{
    const XComPtr<IDispatch> session = NewSession();
    Call call;
    Args args;
    args.Text(L"nosuch").Text(L"volatile");
    CallByName(session.Get(), L"Bind", args, call);
    EXPECT_EQ(DISP_E_EXCEPTION, call.hr);
    EXPECT_EQ(E_INVALIDARG, call.exception.scode);
    ASSERT_TRUE(call.exception.bstrDescription);
    EXPECT_NE(std::wstring::npos, std::wstring(call.exception.bstrDescription).find(L"unknown category 'nosuch'"));
}

TEST(SessionDispatch, TheValuesCollectionHasADefaultMemberAndAnEnumerator)
{
    const XComPtr<IDispatch> session = VolatileSession();
    for (const wchar_t* name : {L"b", L"a"})
        SetText(session.Get(), L"Dispatch/List", name, L"value");
    Call values;
    Args valuesArgs;
    valuesArgs.Text(L"Dispatch/List").Text(L"volatile");
    CallByName(session.Get(), L"Values", valuesArgs, values);
    ASSERT_EQ(S_OK, values.hr);
    ASSERT_EQ(VT_DISPATCH, values.result.Get().vt);
    IDispatch* collection = values.result.Get().pdispVal;

    Call item;
    Args itemArgs;
    itemArgs.Text(L"A");
    Invoke(collection, DISPID_VALUE, DISPATCH_PROPERTYGET, itemArgs, item);
    ASSERT_EQ(S_OK, item.hr);
    EXPECT_STREQ(L"value", item.result.Get().bstrVal);

    Call newEnum;
    Args none;
    Invoke(collection, DISPID_NEWENUM, DISPATCH_METHOD, none, newEnum);
    ASSERT_EQ(S_OK, newEnum.hr);
    XComPtr<IEnumVARIANT> names;
    ASSERT_EQ(S_OK, newEnum.result.Get().punkVal->QueryInterface(IID_IEnumVARIANT,
                                                                 reinterpret_cast<void**>(names.ReleaseAndGetAddressOf())));
    VARIANT got[3];
    ULONG fetched = 0;
    EXPECT_EQ(S_FALSE, names->Next(3, got, &fetched));
    ASSERT_EQ(2u, fetched);
    EXPECT_STREQ(L"a", got[0].bstrVal);
    EXPECT_STREQ(L"b", got[1].bstrVal);
    ::VariantClear(&got[0]);
    ::VariantClear(&got[1]);
}

TEST(SessionDispatch, TheTypeLibraryDescribesTheClassAndEveryMethod)
{
    const XComPtr<IDispatch> session = NewSession();
    XComPtr<ITypeInfo> info;
    ASSERT_EQ(S_OK, session->GetTypeInfo(0, LOCALE_USER_DEFAULT, info.ReleaseAndGetAddressOf()));
    TYPEATTR* attributes = nullptr;
    ASSERT_EQ(S_OK, info->GetTypeAttr(&attributes));
    const WORD functions = attributes->cFuncs;
    EXPECT_TRUE(attributes->wTypeFlags & TYPEFLAG_FDUAL);
    info->ReleaseTypeAttr(attributes);
    int described = 0;
    for (UINT i = 0; i < functions; ++i)
    {
        FUNCDESC* function = nullptr;
        ASSERT_EQ(S_OK, info->GetFuncDesc(i, &function));
        BSTR name = nullptr;
        BSTR help = nullptr;
        info->GetDocumentation(function->memid, &name, &help, nullptr, nullptr);
        if (function->memid >= 1 && function->memid <= 11)
        {
            EXPECT_TRUE(help && ::SysStringLen(help) > 10) << XCtlUtf8(name ? name : L"?");
            ++described;
        }
        ::SysFreeString(name);
        ::SysFreeString(help);
        info->ReleaseFuncDesc(function);
    }
    EXPECT_EQ(11, described);
    XComPtr<ITypeLib> library;
    UINT index = 0;
    ASSERT_EQ(S_OK, info->GetContainingTypeLib(library.ReleaseAndGetAddressOf(), &index));
    BSTR libraryHelp = nullptr;
    library->GetDocumentation(-1, nullptr, &libraryHelp, nullptr, nullptr);
    EXPECT_STREQ(L"WQSessionDataMng Session 1.0 Type Library", libraryHelp);
    ::SysFreeString(libraryHelp);
}
