#include "roottesthelpers.h"

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

std::vector<std::wstring> SubKeysOf(IWQ_SessionDataIO* io, const wchar_t* key, ULONG recursive, HRESULT* hr)
{
    XBstrArray names;
    const HRESULT result = io->GetSubKeys(XWQComBSTR(key), recursive, names.CountAddress(), names.ItemsAddress());
    if (hr)
        *hr = result;
    std::vector<std::wstring> out;
    for (ULONG i = 0; i < names.Count(); ++i)
        out.emplace_back(names[i], ::SysStringLen(names[i]));
    return out;
}

std::vector<std::wstring> AllDataOf(IWQ_SessionDataIO* io, const wchar_t* key, HRESULT* hr)
{
    XKeyValueArray records;
    const HRESULT result = io->GetAllData(XWQComBSTR(key), records.CountAddress(), records.ItemsAddress());
    if (hr)
        *hr = result;
    std::vector<std::wstring> out;
    for (ULONG i = 0; i < records.Count(); ++i)
    {
        const tagKEY_SESSIONDATAVALUE& record = records[i];
        for (ULONG j = 0; j < record.ulCount; ++j)
            out.push_back(std::wstring(record.bstrKeyName, ::SysStringLen(record.bstrKeyName)) + L"|" +
                          std::wstring(record.pSessionDataValue[j].bstrValueName) + L"=" +
                          std::wstring(record.pSessionDataValue[j].bstrValue));
    }
    return out;
}
