// Helpers for tests against the registered DLL.
#pragma once

#include "recordingio.h"
#include "testenv.h"

#include <string>

// Full path of a file next to the test executables (the binaries of the product sit there).
std::wstring BinaryPath(const wchar_t* name);
// Full path of WQSessionDataMng64.dll.
std::wstring ModulePath();
// Runs a program and waits up to a minute for it to end: its exit code (or the error of
// CreateProcess).
DWORD RunAndWait(const std::wstring& commandLine);
// Runs regsvr32 (with /s, and /u when unregister) on the DLL and returns its exit code.
DWORD RunRegsvr32(bool unregister);
// Registry helpers on HKEY_CLASSES_ROOT: the default (or named) string value, or "<missing>".
std::wstring ClassesValue(const std::wstring& key, const wchar_t* name = nullptr);
bool ClassesKeyExists(const std::wstring& key);
std::wstring GuidText(const GUID& guid);

// An object of a registered class, created by ProgID in-process, as its interface I; null when
// that fails.
template <class I>
XComPtr<I> CreateByProgId(const wchar_t* progId)
{
    CLSID clsid;
    XComPtr<I> object;
    if (SUCCEEDED(::CLSIDFromProgID(progId, &clsid)))
        ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, __uuidof(I),
                           reinterpret_cast<void**>(object.ReleaseAndGetAddressOf()));
    return object;
}

// The per-user database category of a client: the module's manager, its database storage in
// user-profile mode under a root key over a root object, asynchronous when intervalSeconds is
// not 0 (the storage's worker reaches the root through the Global Interface Table).
struct UserDatabaseCategory
{
    UserDatabaseCategory(const XComPtr<IWQ_SessionDataIOEx>& root, const wchar_t* rootKey, LONG intervalSeconds);
    XComPtr<IWQ_SessionDataMng> manager;
    XComPtr<IWQ_SessionDataStorageDb> storage;
    HRESULT setup = E_FAIL;
};

extern const SESSIONDATATYPE kUserDatabase;
// Manager calls with text values in the per-user database category.
HRESULT WriteUserText(IWQ_SessionDataMng* manager, const wchar_t* key, const wchar_t* name, const std::wstring& text);
// GetData as VT_BSTR, from the per-user database category unless another is named.
std::wstring ReadUserText(IWQ_SessionDataMng* manager, const wchar_t* key, const wchar_t* name, HRESULT* hr = nullptr,
                          SESSIONDATATYPE category = kUserDatabase);
