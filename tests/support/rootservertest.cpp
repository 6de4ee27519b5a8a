#include "rootservertest.h"

#include "xcomtypes.h"

#include <sddl.h>

#include <vector>

const wchar_t kRootProgId[] = L"WQSessionDataMng.WQ_SessionDataStorageRoot";

DWORD RunRootServer(const wchar_t* argument)
{
    return RunAndWait(L"\"" + BinaryPath(L"WQSessionDataRoot64.exe") + L"\" " + argument);
}

XComPtr<IWQ_SessionDataRootConfig> RootConfigOf(const XComPtr<IWQ_SessionDataIOEx>& root)
{
    XComPtr<IWQ_SessionDataRootConfig> config;
    if (root)
        root.As(config);
    return config;
}

XComPtr<IWQ_SessionDataIOEx> ActivateRoot(const std::wstring& connection, HRESULT* hr, DWORD context)
{
    XComPtr<IWQ_SessionDataIOEx> root;
    CLSID clsid = GUID_NULL;
    HRESULT result = ::CLSIDFromProgID(kRootProgId, &clsid);
    if (SUCCEEDED(result))
        result = ::CoCreateInstance(clsid, nullptr, context, IID_IWQ_SessionDataIOEx,
                                    reinterpret_cast<void**>(root.ReleaseAndGetAddressOf()));
    if (SUCCEEDED(result) && !connection.empty())
    {
        const XComPtr<IWQ_SessionDataRootConfig> config = RootConfigOf(root);
        result = config ? config->Open(XWQComBSTR(connection.c_str())) : E_NOINTERFACE;
    }
    if (hr)
        *hr = result;
    if (FAILED(result))
        root.Reset();
    return root;
}

DWORD ServerProcessOf(const XComPtr<IWQ_SessionDataIOEx>& root)
{
    LONG id = 0;
    const XComPtr<IWQ_SessionDataRootConfig> config = RootConfigOf(root);
    if (!config || FAILED(config->GetServerProcessId(&id)))
        return 0;
    return static_cast<DWORD>(id);
}

WatchedProcess::WatchedProcess(DWORD id, DWORD access) : m_handle(id ? ::OpenProcess(access, FALSE, id) : nullptr) {}

WatchedProcess::~WatchedProcess()
{
    if (m_handle)
        ::CloseHandle(m_handle);
}

bool WatchedProcess::EndsWithin(DWORD milliseconds) const
{
    return m_handle && ::WaitForSingleObject(m_handle, milliseconds) == WAIT_OBJECT_0;
}

std::wstring ProcessUserSid()
{
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token))
        return L"";
    DWORD size = 0;
    ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::vector<BYTE> buffer(size ? size : 1);
    std::wstring sid;
    LPWSTR text = nullptr;
    if (::GetTokenInformation(token, TokenUser, buffer.data(), size, &size) &&
        ::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid, &text))
    {
        sid = text;
        ::LocalFree(text);
    }
    ::CloseHandle(token);
    return sid;
}
