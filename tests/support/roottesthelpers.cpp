#include "roottesthelpers.h"

#include "sqltesthelpers.h"
#include "xcalleridentity.h"
#include "xcomtypes.h"
#include "xstorageroot.h"

#include <mutex>

namespace
{
std::mutex g_callerLock;
std::wstring g_caller;

std::wstring ChosenCaller()
{
    std::lock_guard<std::mutex> guard(g_callerLock);
    return g_caller;
}
} // namespace

XComPtr<IWQ_SessionDataIOEx> NewRootObject(const std::wstring& connection, HRESULT* hr)
{
    XComPtr<IWQ_SessionDataIOEx> root;
    HRESULT result = XComObject<XStorageRoot>::Create(IID_IWQ_SessionDataIOEx,
                                                      reinterpret_cast<void**>(root.ReleaseAndGetAddressOf()));
    if (SUCCEEDED(result) && !connection.empty())
        result = ConfigOf(root)->Open(XWQComBSTR(connection.c_str()));
    if (hr)
        *hr = result;
    if (FAILED(result))
        root.Reset();
    return root;
}

XComPtr<IWQ_SessionDataRootConfig> ConfigOf(const XComPtr<IWQ_SessionDataIOEx>& root)
{
    XComPtr<IWQ_SessionDataRootConfig> config;
    if (root)
        root.As(config);
    return config;
}

CallerIs::CallerIs(const std::wstring& sid)
{
    {
        std::lock_guard<std::mutex> guard(g_callerLock);
        g_caller = sid;
    }
    XSetCallerIdentitySource(&ChosenCaller);
}

CallerIs::~CallerIs()
{
    XSetCallerIdentitySource(nullptr);
}

::testing::AssertionResult ReadsFromOneCache(IWQ_SessionDataIOEx* first, IWQ_SessionDataIOEx* second,
                                             const std::wstring& path)
{
    if (Write(first, L"Suite/Cache", L"n", L"cached") != S_OK)
        return ::testing::AssertionFailure() << "the write through the first root failed";
    RawSqlite raw(path);
    if (!raw.Execute("UPDATE sdm_values SET value = 'file' WHERE name = 'n'"))
        return ::testing::AssertionFailure() << raw.Error();
    const std::wstring read = Read(second, L"suite/cache", L"n").value;
    if (read != L"cached")
        return ::testing::AssertionFailure() << "the second root read \"" << Utf8(read) << "\"";
    return ::testing::AssertionSuccess();
}
