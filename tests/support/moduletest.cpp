#include "moduletest.h"

#include "xcomtypes.h"

#include <vector>

std::wstring BinaryPath(const wchar_t* name)
{
    wchar_t exe[MAX_PATH];
    const DWORD length = ::GetModuleFileNameW(nullptr, exe, MAX_PATH);
    std::wstring path(exe, length);
    return path.substr(0, path.find_last_of(L"\\/") + 1) + name;
}

std::wstring ModulePath()
{
    return BinaryPath(L"WQSessionDataMng64.dll");
}

DWORD RunAndWait(const std::wstring& commandLine)
{
    std::wstring command = commandLine;
    STARTUPINFOW si{};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi{};
    if (!::CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi))
        return ::GetLastError();
    ::WaitForSingleObject(pi.hProcess, 60000);
    DWORD code = 1;
    ::GetExitCodeProcess(pi.hProcess, &code);
    ::CloseHandle(pi.hThread);
    ::CloseHandle(pi.hProcess);
    return code;
}

DWORD RunRegsvr32(bool unregister)
{
    std::wstring command = L"regsvr32.exe /s ";
    if (unregister)
        command += L"/u ";
    command += L"\"" + ModulePath() + L"\"";
    // Wine now and then fails to start a program while another process of the prefix (a local
    // server of an earlier test) is ending: a failure is tried once more.
    DWORD code = RunAndWait(command);
    if (code != 0)
    {
        ::Sleep(1000);
        code = RunAndWait(command);
    }
    return code;
}

std::wstring ClassesValue(const std::wstring& key, const wchar_t* name)
{
    DWORD size = 0;
    if (::RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), name, RRF_RT_REG_SZ, nullptr, nullptr, &size) != ERROR_SUCCESS)
        return L"<missing>";
    std::vector<wchar_t> buffer(size / sizeof(wchar_t) + 1);
    if (::RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), name, RRF_RT_REG_SZ, nullptr, buffer.data(), &size) !=
        ERROR_SUCCESS)
        return L"<missing>";
    return buffer.data();
}

bool ClassesKeyExists(const std::wstring& key)
{
    HKEY handle = nullptr;
    if (::RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS)
        return false;
    ::RegCloseKey(handle);
    return true;
}

std::wstring GuidText(const GUID& guid)
{
    wchar_t text[40] = {};
    ::StringFromGUID2(guid, text, 40);
    return text;
}

const SESSIONDATATYPE kUserDatabase = static_cast<SESSIONDATATYPE>(2);

UserDatabaseCategory::UserDatabaseCategory(const XComPtr<IWQ_SessionDataIOEx>& root, const wchar_t* rootKey,
                                           LONG intervalSeconds)
{
    manager = CreateByProgId<IWQ_SessionDataMng>(L"WQSessionDataMng.WQSessionDataMng");
    storage = CreateByProgId<IWQ_SessionDataStorageDb>(L"WQSessionDataMng.WQ_SessionDataStorageDb");
    if (!root || !manager || !storage)
        return;
    setup = storage->SetRoot(root.Get());
    if (SUCCEEDED(setup))
        setup = storage->SetUserProfileStorage();
    if (SUCCEEDED(setup))
        setup = storage->SetRootKey(XWQComBSTR(rootKey));
    if (SUCCEEDED(setup) && intervalSeconds != 0)
        setup = storage->SetAsyncWriteMode(intervalSeconds);
    if (SUCCEEDED(setup))
        setup = manager->SetStorage(storage.Get(), kUserDatabase, 1);
}

HRESULT WriteUserText(IWQ_SessionDataMng* manager, const wchar_t* key, const wchar_t* name, const std::wstring& text)
{
    XVariant value;
    value.Get().vt = VT_BSTR;
    value.Get().bstrVal = ::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return manager->WriteData(XWQComBSTR(key), XWQComBSTR(name), value.Get(), kUserDatabase);
}

std::wstring ReadUserText(IWQ_SessionDataMng* manager, const wchar_t* key, const wchar_t* name, HRESULT* hr,
                          SESSIONDATATYPE category)
{
    XVariant value;
    const HRESULT result = manager->GetData(XWQComBSTR(key), XWQComBSTR(name), VT_BSTR, &value.Get(), category);
    if (hr)
        *hr = result;
    return value.Get().vt == VT_BSTR && value.Get().bstrVal
               ? std::wstring(value.Get().bstrVal, ::SysStringLen(value.Get().bstrVal))
               : L"";
}
