// Helpers for tests against the registered DLL.
#pragma once

#include "recordingio.h"
#include "testenv.h"

#include <string>

// Full path of WQSessionDataMng64.dll (it sits next to the test executables).
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
