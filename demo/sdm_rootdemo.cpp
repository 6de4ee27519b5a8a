// Demo client of the storage-root server: the per-user category kept in a database, through the
// server (WQSessionDataRoot64.exe, out of process, by ProgID) on its default database, the SQLite
// file %LOCALAPPDATA%\WQSessionDataMng\sessiondata.db.
//   sdm_rootdemo write <text>   writes <text> as the per-user value Demo\Greeting "Text"
//   sdm_rootdemo read           reads it back (run it as another process)
#include "democlient.h"
#include "xsessiondatamng_h.h"
#include "xstorageroot_h.h"

#include <cwchar>

namespace
{
const SESSIONDATATYPE kUserDatabase = static_cast<SESSIONDATATYPE>(2);

struct Category
{
    LONG server = 0;
    Ptr<IWQ_SessionDataIOEx> root;
    Ptr<IWQ_SessionDataStorageDb> storage;
    Ptr<IWQ_SessionDataMng> manager;
    bool ready = false;

    Category()
    {
        ready = Check("CoCreateInstance(storage root, local server)",
                      CreateByProgId(L"WQSessionDataMng.WQ_SessionDataStorageRoot", CLSCTX_LOCAL_SERVER,
                                     IID_IWQ_SessionDataIOEx, root.out())) &&
                Check("CoCreateInstance(database storage)",
                      CreateByProgId(L"WQSessionDataMng.WQ_SessionDataStorageDb", CLSCTX_INPROC_SERVER,
                                     IID_IWQ_SessionDataStorageDb, storage.out())) &&
                Check("CoCreateInstance(manager)", CreateByProgId(L"WQSessionDataMng.WQSessionDataMng",
                                                                  CLSCTX_INPROC_SERVER, IID_IWQ_SessionDataMng,
                                                                  manager.out())) &&
                Check("SetRoot(root)", storage->SetRoot(root.p)) &&
                Check("SetUserProfileStorage()", storage->SetUserProfileStorage()) &&
                Check("SetRootKey(Suite\\App)", storage->SetRootKey(Bstr(L"Suite\\App"))) &&
                Check("SetAsyncWriteMode(5)", storage->SetAsyncWriteMode(5)) &&
                Check("SetStorage(database, category 2, cached)", manager->SetStorage(storage.p, kUserDatabase, 1));
        if (!ready)
            return;
        Ptr<IWQ_SessionDataRootConfig> config;
        BSTR connection = nullptr;
        if (SUCCEEDED(root->QueryInterface(IID_IWQ_SessionDataRootConfig, config.out())) &&
            SUCCEEDED(config->GetConnection(&connection)) && SUCCEEDED(config->GetServerProcessId(&server)))
            std::printf("  server process %ld, database %ls\n", server, connection);
        ::SysFreeString(connection);
    }
};

int Write(const wchar_t* text)
{
    std::printf("Process %lu writes the per-user value through the server:\n", ::GetCurrentProcessId());
    HANDLE server = nullptr;
    bool written = false;
    {
        Category category;
        if (!category.ready)
            return 1;
        server = ::OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(category.server));
        Variant value;
        value.v.vt = VT_BSTR;
        value.v.bstrVal = ::SysAllocString(text);
        written = Check("WriteData(Demo\\Greeting, Text)", category.manager->WriteData(Bstr(L"Demo\\Greeting"),
                                                                                      Bstr(L"Text"), value.v,
                                                                                      kUserDatabase)) &&
                  Check("FlushAsyncStorage(2)", category.manager->FlushAsyncStorage(kUserDatabase));
    }
    // Everything released: the server ends a few seconds later, and the value stays in the file.
    if (server)
    {
        const bool ended = ::WaitForSingleObject(server, 20000) == WAIT_OBJECT_0;
        std::printf("  everything released; the server process %s\n", ended ? "has ended" : "is still running");
        ::CloseHandle(server);
    }
    return written ? 0 : 1;
}

int Read()
{
    std::printf("Process %lu reads the per-user value through the server:\n", ::GetCurrentProcessId());
    Category category;
    if (!category.ready)
        return 1;
    Variant value;
    const HRESULT hr =
        category.manager->GetData(Bstr(L"Demo\\Greeting"), Bstr(L"Text"), VT_BSTR, &value.v, kUserDatabase);
    Check("GetData(Demo\\Greeting, Text)", hr);
    if (hr != S_OK || value.v.vt != VT_BSTR)
        return 1;
    std::printf("  read back: %ls\n", value.v.bstrVal);
    return 0;
}
} // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 2 || (std::wcscmp(argv[1], L"write") == 0 && argc < 3))
    {
        std::printf("usage: sdm_rootdemo write <text> | sdm_rootdemo read\n");
        return 2;
    }
    if (FAILED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 2;
    const int result = std::wcscmp(argv[1], L"write") == 0 ? Write(argv[2]) : Read();
    ::CoUninitialize();
    return result;
}
