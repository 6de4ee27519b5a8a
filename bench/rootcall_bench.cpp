// The storage-root server (WQSessionDataRoot64.exe, activated by ProgID) measured across the
// process boundary, side by side in one run:
//   GetStringList of a 10-value key (a hit in the server's cache) against the bare cross-process
//     call: the same method of a do-nothing object in another process (a child of this program)
//     that returns a copy of the same 10 records, through the same proxy/stub;
//   the database storage's asynchronous writes to the server: 1,000 one-value StoreData calls
//     piped (time per call on the caller's thread), then FlushAsyncStorage, which returns when
//     the worker has run every piped write and the server has committed it: the flush time and
//     the drain rate (writes per second) it gives.
// Timing: QueryPerformanceCounter, a warm-up round, the median of several rounds, the root and
// the bare call alternating round by round.
#include "rootcall_bench.h"

#include "benchclock.h"
#include "benchresults.h"
#include "sessiondataioexnotimpl.h"
#include "xcomobject.h"
#include "xcomtypes.h"
#include "xsessiondatastoragedb.h"
#include "xstorageroot_h.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace
{
const int kRounds = 9;
const int kCallsPerRound = 1000;
const int kPipedWrites = 1000;
const wchar_t kKey[] = L"Bench/Session";

// {5B0E3C59-0F79-4B0B-9A4C-2D1E3B8A7F10}: the do-nothing object of the bare call.
const CLSID kNothingClsid = {0x5b0e3c59, 0x0f79, 0x4b0b, {0x9a, 0x4c, 0x2d, 0x1e, 0x3b, 0x8a, 0x7f, 0x10}};

std::wstring ValueName(int i)
{
    return L"value" + std::to_wstring(i);
}

std::wstring ValueText(int i)
{
    return L"the text of value " + std::to_wstring(i);
}

// Returns a copy of the same 10 records the root returns, and does nothing else.
class NothingObject : public SessionDataIOExNotImpl
{
public:
    virtual ~NothingObject() = default;
    HRESULT InternalQueryInterface(REFIID iid, void** ppv)
    {
        return XQueryInterfaces<IWQ_SessionDataIOEx, IWQ_SessionDataIO>(this, iid, ppv);
    }
    STDMETHODIMP GetStringList(BSTR, ULONG* count, tagSESSIONDATAVALUE** records) override
    {
        XValueArray array = XNewCoTaskArray<XValueArray>(10);
        for (int i = 0; i < 10; ++i)
        {
            const std::wstring name = ValueName(i);
            const std::wstring text = ValueText(i);
            array[static_cast<ULONG>(i)].bstrValueName = XNewBstr(name.data(), name.size());
            array[static_cast<ULONG>(i)].bstrValue = XNewBstr(text.data(), text.size());
        }
        array.Release(count, records);
        return S_OK;
    }
};

class NothingFactory final : public IClassFactory
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        if (!::IsEqualIID(iid, IID_IUnknown) && !::IsEqualIID(iid, IID_IClassFactory))
            return E_NOINTERFACE;
        *ppv = static_cast<IClassFactory*>(this);
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** ppv) override
    {
        return outer ? CLASS_E_NOAGGREGATION : XComObject<NothingObject>::Create(iid, ppv);
    }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }
};

// Owner of a handle.
struct Handle
{
    HANDLE h = nullptr;
    ~Handle()
    {
        if (h)
            ::CloseHandle(h);
    }
};

// The do-nothing object in a child process, for the scope.
class NothingHost
{
public:
    explicit NothingHost(const wchar_t* program)
    {
        const std::wstring tag = std::to_wstring(::GetCurrentProcessId());
        const std::wstring ready = L"Local\\WQSdmBenchReady." + tag;
        const std::wstring stop = L"Local\\WQSdmBenchStop." + tag;
        m_ready.h = ::CreateEventW(nullptr, TRUE, FALSE, ready.c_str());
        m_stop.h = ::CreateEventW(nullptr, TRUE, FALSE, stop.c_str());
        std::wstring command = L"\"" + std::wstring(program) + L"\" nothing-host " + ready + L" " + stop;
        STARTUPINFOW si{};
        si.cb = sizeof si;
        PROCESS_INFORMATION pi{};
        if (!::CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi))
            return;
        m_process.h = pi.hProcess;
        ::CloseHandle(pi.hThread);
        m_started = ::WaitForSingleObject(m_ready.h, 30000) == WAIT_OBJECT_0;
    }
    ~NothingHost()
    {
        ::SetEvent(m_stop.h);
        if (m_process.h)
            ::WaitForSingleObject(m_process.h, 30000);
    }
    bool Started() const { return m_started; }

private:
    Handle m_ready;
    Handle m_stop;
    Handle m_process;
    bool m_started = false;
};

} // namespace

XComPtr<IWQ_SessionDataIOEx> ActivateBenchRoot(const std::wstring& connection, DWORD context)
{
    XComPtr<IWQ_SessionDataIOEx> root;
    CLSID clsid;
    if (FAILED(::CLSIDFromProgID(L"WQSessionDataMng.WQ_SessionDataStorageRoot", &clsid)) ||
        FAILED(::CoCreateInstance(clsid, nullptr, context, IID_IWQ_SessionDataIOEx,
                                  reinterpret_cast<void**>(root.ReleaseAndGetAddressOf()))))
        return XComPtr<IWQ_SessionDataIOEx>();
    XComPtr<IWQ_SessionDataRootConfig> config;
    if (FAILED(root.As(config)) || FAILED(config->Open(XWQComBSTR(connection.c_str()))))
        return XComPtr<IWQ_SessionDataIOEx>();
    return root;
}

namespace
{
std::wstring TempDatabase()
{
    wchar_t folder[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, folder);
    const std::wstring path = std::wstring(folder) + L"wqsdm-bench-root.db";
    for (const wchar_t* suffix : {L"", L"-wal", L"-shm"})
        ::DeleteFileW((path + suffix).c_str());
    return path;
}

// GetStringList of the key through io, the answer checked and freed; whether it had 10 records.
bool ListOnce(IWQ_SessionDataIOEx* io, BSTR key)
{
    XValueArray values;
    return io->GetStringList(key, values.CountAddress(), values.ItemsAddress()) == S_OK && values.Count() == 10;
}

void MeasureCalls(IWQ_SessionDataIOEx* root, IWQ_SessionDataIOEx* nothing)
{
    const XWQComBSTR key(kKey);
    std::vector<double> rootRounds;
    std::vector<double> bareRounds;
    size_t failures = 0;
    const int calls = BenchResults::Instance().Quick() ? kCallsPerRound / 10 : kCallsPerRound;
    for (int round = -1; round < BenchResults::Instance().Rounds(kRounds); ++round)
    {
        double start = NowNs();
        for (int i = 0; i < calls; ++i)
            failures += !ListOnce(root, key);
        const double rootUs = (NowNs() - start) / calls / 1000;
        start = NowNs();
        for (int i = 0; i < calls; ++i)
            failures += !ListOnce(nothing, key);
        const double bareUs = (NowNs() - start) / calls / 1000;
        if (round >= 0)
        {
            rootRounds.push_back(rootUs);
            bareRounds.push_back(bareUs);
        }
    }
    BenchResults::Instance().AddRatio("root", "list/10", "GetStringList of 10 values through the root server", "us",
                                      rootRounds, "the same call of a do-nothing object in another process", bareRounds,
                                      nlohmann::json::object(), 1.2);
    const double rootUs = BenchMedian(rootRounds);
    const double bareUs = BenchMedian(bareRounds);
    std::printf("  GetStringList, 10 values, root:       %9.1f us per call\n", rootUs);
    std::printf("  the same call of a do-nothing object: %9.1f us per call\n", bareUs);
    std::printf("  ratio root / bare call:               %9.2f   (target <= 1.2)\n", rootUs / bareUs);
    if (failures)
        std::printf("warning: %zu calls failed\n", failures);
}

} // namespace

DrainFigures MeasureDrain(IWQ_SessionDataIOEx* root, const wchar_t* rootKey)
{
    DrainFigures figures;
    XComPtr<IWQ_SessionDataStorageDb> storage;
    XComObject<XSessionDataStorageDb>::Create(IID_IWQ_SessionDataStorageDb,
                                              reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf()));
    XComPtr<IWQ_SessionDataStorage> plain;
    if (!storage || FAILED(storage->SetRoot(root)) || FAILED(storage->SetRootKey(XWQComBSTR(rootKey))) ||
        FAILED(storage->SetAsyncWriteMode(120)) || FAILED(storage.As(plain)))
    {
        std::printf("warning: the database storage could not be set up\n");
        return figures;
    }
    std::vector<XWQComBSTR> names;
    for (int i = 0; i < kPipedWrites; ++i)
        names.emplace_back(ValueName(i).c_str());
    const XWQComBSTR key(L"Writes");
    const XWQComBSTR text(L"piped");
    const int rounds = BenchResults::Instance().Rounds(5);
    for (int round = -1; round < rounds; ++round)
    {
        const double start = NowNs();
        for (int i = 0; i < kPipedWrites; ++i)
        {
            tagSESSIONDATAVALUE record{names[static_cast<size_t>(i)], text};
            figures.failures += plain->StoreData(key, 1, &record) != S_OK;
        }
        const double piped = NowNs();
        figures.failures += plain->FlushAsyncStorage() != S_OK;
        const double flushed = NowNs();
        // The floor: the same writes made on the root directly, one call each.
        const int direct = kPipedWrites / 5;
        for (int i = 0; i < direct; ++i)
        {
            tagSESSIONDATAVALUE record{names[static_cast<size_t>(i)], text};
            figures.failures += root->WriteStringList(XWQComBSTR((std::wstring(rootKey) + L"/Writes").c_str()), 1, &record) != S_OK;
        }
        const double directDone = NowNs();
        if (round >= 0)
        {
            figures.pipeUs.push_back((piped - start) / kPipedWrites / 1000);
            figures.flushMs.push_back((flushed - piped) / 1e6);
            figures.rates.push_back(kPipedWrites / ((flushed - piped) / 1e9));
            figures.directRates.push_back(direct / ((directDone - flushed) / 1e9));
        }
    }
    return figures;
}

namespace
{
void PrintDrain(const DrainFigures& figures)
{
    BenchResults& results = BenchResults::Instance();
    results.AddRatio("async", "drain/process", "drain rate to the root server in another process (SQLite)", "calls/s",
                     figures.rates, "the same writes made on the root directly, per second", figures.directRates);
    results.AddValue("async", "store/process", "StoreData of one value piped to the root server (caller's thread)", "us",
                     figures.pipeUs);
    std::printf("  StoreData piped, one value:           %9.1f us per call (caller's thread)\n", BenchMedian(figures.pipeUs));
    std::printf("  FlushAsyncStorage of 1,000 writes:    %9.1f ms until all are committed\n", BenchMedian(figures.flushMs));
    std::printf("  drain rate to the server:             %9.0f writes/s (directly: %.0f/s)\n", BenchMedian(figures.rates),
                BenchMedian(figures.directRates));
    if (figures.failures)
        std::printf("warning: %zu calls failed\n", figures.failures);
}
} // namespace

void RunRootCallBenchmarks(const wchar_t* program)
{
    std::printf("\nstorage-root server across processes (WQSessionDataRoot64.exe, SQLite), median of %d rounds\n",
                kRounds);
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateBenchRoot(L"sqlite:" + TempDatabase());
    NothingHost host(program);
    XComPtr<IWQ_SessionDataIOEx> nothing;
    if (host.Started())
        ::CoCreateInstance(kNothingClsid, nullptr, CLSCTX_LOCAL_SERVER, IID_IWQ_SessionDataIOEx,
                           reinterpret_cast<void**>(nothing.ReleaseAndGetAddressOf()));
    if (!root || !nothing)
    {
        std::printf("warning: the root (registered module and server needed) or the do-nothing host is missing\n");
        return;
    }
    std::vector<XWQComBSTR> names;
    std::vector<XWQComBSTR> texts;
    std::vector<tagSESSIONDATAVALUE> records;
    for (int i = 0; i < 10; ++i)
    {
        names.emplace_back(ValueName(i).c_str());
        texts.emplace_back(ValueText(i).c_str());
    }
    for (int i = 0; i < 10; ++i)
        records.push_back(tagSESSIONDATAVALUE{names[static_cast<size_t>(i)], texts[static_cast<size_t>(i)]});
    root->WriteStringList(XWQComBSTR(kKey), 10, records.data());
    MeasureCalls(root.Get(), nothing.Get());
    PrintDrain(MeasureDrain(root.Get(), L"Bench\\Drain"));
}

int RunNothingHost(const wchar_t* readyEvent, const wchar_t* stopEvent)
{
    static NothingFactory factory;
    DWORD cookie = 0;
    if (FAILED(::CoRegisterClassObject(kNothingClsid, &factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &cookie)))
        return 1;
    Handle ready;
    Handle stop;
    ready.h = ::OpenEventW(EVENT_MODIFY_STATE, FALSE, readyEvent);
    stop.h = ::OpenEventW(SYNCHRONIZE, FALSE, stopEvent);
    ::SetEvent(ready.h);
    ::WaitForSingleObject(stop.h, INFINITE);
    ::CoRevokeClassObject(cookie);
    return 0;
}
