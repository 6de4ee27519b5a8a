// Helpers of the tests against the registered storage-root server (WQSessionDataRoot64.exe, by
// its ProgID) and the registered module.
#pragma once

#include "moduletest.h"
#include "xcomobject.h"
#include "xsessiondatamng_h.h"
#include "xstorageroot_h.h"

#include <string>

extern const wchar_t kRootProgId[];

// Runs WQSessionDataRoot64.exe with an argument; its exit code.
DWORD RunRootServer(const wchar_t* argument);

// A root object activated by ProgID in a context (out of process by default), opened on
// connection when one is given; null when either fails (*hr says why).
XComPtr<IWQ_SessionDataIOEx> ActivateRoot(const std::wstring& connection = std::wstring(), HRESULT* hr = nullptr,
                                          DWORD context = CLSCTX_LOCAL_SERVER);
XComPtr<IWQ_SessionDataRootConfig> RootConfigOf(const XComPtr<IWQ_SessionDataIOEx>& root);
// The process id of the server behind a root object (0 when the call fails).
DWORD ServerProcessOf(const XComPtr<IWQ_SessionDataIOEx>& root);

// A process, by id, to wait for; the handle is closed at the end.
class WatchedProcess
{
public:
    explicit WatchedProcess(DWORD id, DWORD access = SYNCHRONIZE);
    ~WatchedProcess();
    WatchedProcess(const WatchedProcess&) = delete;
    WatchedProcess& operator=(const WatchedProcess&) = delete;
    bool Valid() const { return m_handle != nullptr; }
    // True when the process ends within milliseconds.
    bool EndsWithin(DWORD milliseconds) const;
    HANDLE Handle() const { return m_handle; }

private:
    HANDLE m_handle = nullptr;
};

// The SID of this process's user, as text.
std::wstring ProcessUserSid();
