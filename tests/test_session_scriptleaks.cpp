// No task memory left behind by calls from a script: the VBScript engine, hosted in this process,
// runs 1,000 and then 10,000 rounds of SetValue, GetValue and Values on the session (the BSTR cache
// off, every task allocation counted by a spy); what is still held afterwards must not grow with
// the number of rounds.
#include "mallocspy.h"
#include "xcomobject.h"
#include "xctlsession.h"

#include <activscp.h>
#include <gtest/gtest.h>

#include <string>

namespace
{
// The host's side of the engine: the session as the named item "s", script errors kept.
class Site : public IActiveScriptSite
{
public:
    explicit Site(IDispatch* session) : m_session(session) {}
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        if (::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, IID_IActiveScriptSite))
        {
            *ppv = static_cast<IActiveScriptSite*>(this);
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetLCID(LCID*) override { return E_NOTIMPL; }
    STDMETHODIMP GetItemInfo(LPCOLESTR name, DWORD mask, IUnknown** item, ITypeInfo** info) override
    {
        if (std::wstring(name) != L"s")
            return TYPE_E_ELEMENTNOTFOUND;
        if (mask & SCRIPTINFO_IUNKNOWN)
        {
            m_session->AddRef();
            *item = m_session;
        }
        if (mask & SCRIPTINFO_ITYPEINFO)
            *info = nullptr;
        return S_OK;
    }
    STDMETHODIMP GetDocVersionString(BSTR*) override { return E_NOTIMPL; }
    STDMETHODIMP OnScriptTerminate(const VARIANT*, const EXCEPINFO*) override { return S_OK; }
    STDMETHODIMP OnStateChange(SCRIPTSTATE) override { return S_OK; }
    STDMETHODIMP OnScriptError(IActiveScriptError*) override
    {
        ++errors;
        return S_OK;
    }
    STDMETHODIMP OnEnterScript() override { return S_OK; }
    STDMETHODIMP OnLeaveScript() override { return S_OK; }

    int errors = 0;

private:
    IDispatch* m_session;
};

// Runs VBScript text with the session as "s"; the number of script errors (-1: no engine).
int RunVbScript(IDispatch* session, const std::wstring& text)
{
    XComPtr<IActiveScript> engine = XCtlCreate<IActiveScript>(L"VBScript");
    XComPtr<IActiveScriptParse> parse;
    if (FAILED(engine.As(parse)))
        return -1;
    Site site(session);
    engine->SetScriptSite(&site);
    parse->InitNew();
    engine->AddNamedItem(L"s", SCRIPTITEM_ISVISIBLE);
    EXCEPINFO exception = {};
    parse->ParseScriptText(text.c_str(), nullptr, nullptr, nullptr, 0, 0, 0, nullptr, &exception);
    engine->SetScriptState(SCRIPTSTATE_CONNECTED);
    engine->Close();
    return site.errors;
}

std::wstring Rounds(int rounds)
{
    return L"For i = 1 To " + std::to_wstring(rounds) +
           L"\n"
           L"  s.SetValue \"Leaks/K\", \"n\" & (i Mod 50), \"value \" & i, \"volatile\"\n"
           L"  x = s.GetValue(\"Leaks/K\", \"n\" & (i Mod 50))\n"
           L"  c = s.Values(\"Leaks/K\", \"volatile\").Count\n"
           L"Next\n"
           L"If c <> 50 Then Err.Raise 1000\n";
}
} // namespace

TEST(SessionScriptLeaks, TenThousandCallsFromVBScriptLeaveNoTaskMemoryBehind)
{
    const XComPtr<IDispatch> session = XCtlCreate<IDispatch>(L"WQSessionDataMng.Session");
    ASSERT_EQ(0, RunVbScript(session.Get(), L"s.Bind \"volatile\", \"volatile\"\n" + Rounds(100)));
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    ASSERT_EQ(0, RunVbScript(session.Get(), Rounds(1000)));
    const size_t afterThousand = spy.Outstanding();
    ASSERT_EQ(0, RunVbScript(session.Get(), Rounds(10000)));
    const size_t afterTenThousand = spy.Outstanding();
    std::printf("task blocks held: %zu after 1,000 rounds, %zu after 10,000 more\n", afterThousand, afterTenThousand);
    EXPECT_EQ(afterThousand, afterTenThousand) << "blocks held grew with the calls";
    EXPECT_LE(afterTenThousand, 64u);
    EXPECT_EQ(0u, spy.Refreed());
}
