// WQSessionDataRoot64.exe: the storage-root server out of process.
//   /RegServer     registers the classes (this program and the DLL beside it) and the type library
//   /UnregServer   removes what /RegServer wrote
//   -Embedding     started by COM for an activation: serves until idle (also without arguments)
// Registration answers with the exit code: 0, or the failing HRESULT.
#include "xlocalserver.h"
#include "xrootclasses.h"

#include <objbase.h>
#include <shellapi.h>
#include <windows.h>

#include <string>

namespace
{
// The server ends this long after its last object is released.
const DWORD kIdleMilliseconds = 3000;

bool IsSwitch(const wchar_t* argument, const wchar_t* name)
{
    return (argument[0] == L'/' || argument[0] == L'-') && _wcsicmp(argument + 1, name) == 0;
}

// The COM library on this thread, in the multithreaded apartment, for a scope.
class ComApartment
{
public:
    ComApartment() : m_hr(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ~ComApartment()
    {
        if (SUCCEEDED(m_hr))
            ::CoUninitialize();
    }
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    HRESULT Result() const noexcept { return m_hr; }

private:
    HRESULT m_hr;
};

HRESULT Run(int argc, wchar_t** argv)
{
    ComApartment apartment;
    if (FAILED(apartment.Result()))
        return apartment.Result();
    for (int i = 1; i < argc; ++i)
    {
        if (IsSwitch(argv[i], L"RegServer"))
        {
            const std::wstring program = XModulePath(nullptr);
            return XRegisterStorageRoot(XRootServerPaths(XFolderOf(program)), program.c_str());
        }
        if (IsSwitch(argv[i], L"UnregServer"))
            return XUnregisterStorageRoot();
    }
    return XLocalServer::Serve(XRootObjectMap(), kIdleMilliseconds);
}
} // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int)
{
    int argc = 0;
    wchar_t** argv = ::CommandLineToArgvW(::GetCommandLineW(), &argc);
    if (!argv)
        return static_cast<int>(HRESULT_FROM_WIN32(::GetLastError()));
    const HRESULT hr = Run(argc, argv);
    ::LocalFree(argv);
    return static_cast<int>(hr);
}
