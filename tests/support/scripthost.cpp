#include "scripthost.h"

#include "xcomobject.h"
#include "xctlsession.h"

#include <activscp.h>

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

} // namespace

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
