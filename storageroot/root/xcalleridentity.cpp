#include "xcalleridentity.h"

#include "xcomobject.h"
#include "xsdmreporter.h"

#include <sddl.h>

#include <atomic>
#include <vector>

namespace
{
std::atomic<XCallerIdentitySource> g_source{nullptr};

const XSdmReporter& Report()
{
    static const XSdmReporter report("xcalleridentity", GUID_NULL);
    return report;
}
const XWQComBSTR& FunctionName()
{
    return XSDM_FUNCTION_NAME(L"XCallerSid");
}

// Owner of a token handle.
class Token
{
public:
    ~Token()
    {
        if (m_handle)
            ::CloseHandle(m_handle);
    }
    HANDLE* Address() noexcept { return &m_handle; }
    HANDLE Get() const noexcept { return m_handle; }

private:
    HANDLE m_handle = nullptr;
};

std::wstring UserSidOf(HANDLE token)
{
    DWORD size = 0;
    ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::vector<BYTE> buffer(size ? size : sizeof(TOKEN_USER));
    if (!::GetTokenInformation(token, TokenUser, buffer.data(), size, &size))
        Report().RaiseSystem(__LINE__, FunctionName(), ::GetLastError(), L"the token's user cannot be read");
    LPWSTR text = nullptr;
    if (!::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid, &text))
        Report().RaiseSystem(__LINE__, FunctionName(), ::GetLastError(), L"the user's SID cannot be written as text");
    std::wstring sid(text);
    ::LocalFree(text);
    return sid;
}

std::wstring ProcessUser()
{
    Token token;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.Address()))
        Report().RaiseSystem(__LINE__, FunctionName(), ::GetLastError(), L"the process token cannot be opened");
    return UserSidOf(token.Get());
}

// The client of the call in progress, by impersonating it for a moment.
std::wstring ClientUser(IServerSecurity* security)
{
    const HRESULT impersonated = security->ImpersonateClient();
    if (FAILED(impersonated))
        Report().Raise(__LINE__, FunctionName(), E_ACCESSDENIED, L"the caller's identity cannot be established");
    Token token;
    const BOOL opened = ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, token.Address());
    const DWORD error = ::GetLastError();
    security->RevertToSelf();
    if (opened)
        return UserSidOf(token.Get());
    // Impersonation at the identify level of the same user leaves no thread token.
    if (error == ERROR_NO_TOKEN)
        return ProcessUser();
    Report().RaiseSystem(__LINE__, FunctionName(), error, L"the caller's token cannot be opened");
}

std::wstring PlatformCaller()
{
    XComPtr<IServerSecurity> security;
    if (FAILED(::CoGetCallContext(IID_IServerSecurity, reinterpret_cast<void**>(security.ReleaseAndGetAddressOf()))) ||
        !security)
        return ProcessUser();
    return ClientUser(security.Get());
}
} // namespace

std::wstring XCallerSid()
{
    const XCallerIdentitySource source = g_source.load();
    return source ? source() : PlatformCaller();
}

void XSetCallerIdentitySource(XCallerIdentitySource source) noexcept
{
    g_source.store(source);
}
