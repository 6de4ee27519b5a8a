// XSessionObject (coclass WQ_SessionDataSession, ProgID "WQSessionDataMng.Session"): the manager
// for script hosts. Categories are named as sdmctl names them (or given by number), storages are
// written as sdmctl's profiles write them (one parser, sdm_ctl's), values go in and out as
// VARIANTs, lists as collections. A failure is the method's HRESULT with COM error info: the
// manager's own, or the session's with the cause ("unknown category 'nosuch'").
#pragma once

#include "xautodispatch.h"
#include "XWQComBSTR.h"
#include "xctlsession.h"
#include "xsessionauto_h.h"

#include <memory>
#include <mutex>

class XSessionObject : public XAutoDispatch<IWQ_SessionDataSession>, public ISupportErrorInfo
{
public:
    XSessionObject();
    HRESULT InternalQueryInterface(REFIID iid, void** ppv);
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID iid) override;

    STDMETHODIMP Bind(VARIANT category, BSTR storage) override;
    STDMETHODIMP GetValue(BSTR key, BSTR name, VARIANT category, VARIANT* value) override;
    STDMETHODIMP GetValueAs(BSTR key, BSTR name, LONG vartype, VARIANT category, VARIANT* value) override;
    STDMETHODIMP SetValue(BSTR key, BSTR name, VARIANT value, VARIANT category) override;
    STDMETHODIMP Values(BSTR key, VARIANT category, IWQ_SessionDataValues** values) override;
    STDMETHODIMP SubKeys(BSTR key, VARIANT recursive, VARIANT category, IWQ_SessionDataKeys** keys) override;
    STDMETHODIMP DeleteKey(BSTR key, VARIANT category) override;
    STDMETHODIMP Transfer(VARIANT fromCategory, VARIANT toCategory, BSTR fromKey, BSTR toKey) override;
    STDMETHODIMP Flush(VARIANT category) override;
    STDMETHODIMP LastAsyncError(VARIANT category, LONG* hresult) override;
    STDMETHODIMP GetEncrypted(BSTR key, BSTR name, VARIANT category, VARIANT* value) override;

private:
    // The method's boundary: the session's lock, and what the body throws as the method's
    // HRESULT with error info.
    template <class Body>
    HRESULT Run(unsigned long line, const XWQComBSTR& function, Body&& body);
    // The category a script gave (a name or a number), or fallback when it gave none.
    static XCtlCategory CategoryOf(const VARIANT& given, const char* fallback);
    // A read of one value as varType (encrypted: decrypted first); Empty when there is none.
    HRESULT Read(BSTR key, BSTR name, VARTYPE varType, const VARIANT& category, bool encrypted, VARIANT* value);

    std::mutex m_lock;
    std::unique_ptr<XCtlSession> m_session;
};
