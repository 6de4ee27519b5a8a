// Asynchronous writes of the database storage (XSessionDataStorageDb in asynchronous mode over
// its XAsyncStorageDelegator):
//   - StoreData of a one-value list: the cost of piping on the caller's thread, per call;
//   - the worker's drain rate: calls run per second by one flush, to a free-threaded root in
//     the multithreaded apartment (called directly) and to a root in a message-pumping
//     single-threaded apartment (called through the proxy);
//   - FlushAsyncStorage with nothing pending;
//   - the latency of one write: from StoreData returning (a flush follows at once) to the call
//     reaching the root.
// Floors, measured in the same rounds: the same write called on the root directly (for piping,
// and, as calls per second, for the drain rates); one uncontended lock taken and released (for
// the idle flush).
// Timing: QueryPerformanceCounter, a warm-up round, then the rounds, figure and floor alternating.
#include "asyncstorage_bench.h"

#include "benchclock.h"
#include "benchresults.h"
#include "sessiondataioexnotimpl.h"
#include "staapartment.h"
#include "xcomobject.h"
#include "xsessiondatastoragedb.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <functional>
#include <vector>

namespace
{

// A storage root that only counts the writes and deletes it receives.
class CountingRoot : public SessionDataIOExNotImpl
{
public:
    virtual ~CountingRoot() = default;
    HRESULT InternalQueryInterface(REFIID iid, void** ppv)
    {
        return XQueryInterfaces<IWQ_SessionDataIOEx, IWQ_SessionDataIO>(this, iid, ppv);
    }
    std::atomic<long> calls{0};
    std::atomic<double> lastWriteNs{0};  // when the last write arrived

    STDMETHODIMP WriteStringList(BSTR, ULONG, tagSESSIONDATAVALUE*) override
    {
        lastWriteNs = NowNs();
        ++calls;
        return S_OK;
    }
    STDMETHODIMP DeleteKey(BSTR) override
    {
        ++calls;
        return S_OK;
    }
};

// A counting root living in a single-threaded apartment that pumps messages; other threads
// reach it through the Global Interface Table.
class StaRootHost
{
public:
    StaRootHost()
        : m_apartment(
              [this](XComPtr<IUnknown>& object) {
                  m_root = new XComObject<CountingRoot>();
                  object = XComPtr<IUnknown>(static_cast<IWQ_SessionDataIOEx*>(m_root));
                  return S_OK;
              },
              IID_IWQ_SessionDataIOEx)
    {
    }
    XComPtr<IWQ_SessionDataIOEx> Proxy() const { return m_apartment.ForThisThread<IWQ_SessionDataIOEx>(); }
    long Calls() const { return m_root ? m_root->calls.load() : 0; }
    double LastWriteNs() const { return m_root ? m_root->lastWriteNs.load() : 0; }

private:
    CountingRoot* m_root = nullptr;  // kept alive by the apartment
    StaApartment m_apartment;
};

// A database storage in asynchronous mode (interval 120 s: only flushes drain) over root.
XComPtr<IWQ_SessionDataStorageDb> AsyncStorage(IWQ_SessionDataIOEx* root)
{
    XComPtr<IWQ_SessionDataStorageDb> storage;
    XCreateComObject<XSessionDataStorageDb>(nullptr, IID_IWQ_SessionDataStorageDb,
                                            reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf()));
    storage->SetRoot(root);
    storage->SetRootKey(XWQComBSTR(L"Bench"));
    storage->SetAsyncWriteMode(120);
    return storage;
}

const int kRounds = 9;

struct OneValue
{
    XWQComBSTR key{L"Session/Window"};
    XWQComBSTR name{L"Left"};
    XWQComBSTR value{L"120"};
    HRESULT Store(IWQ_SessionDataStorageDb* storage)
    {
        tagSESSIONDATAVALUE record{name, value};
        return storage->StoreData(key, 1, &record);
    }
};

// ns per StoreData of a one-value list in one round (piping only; the round is flushed untimed).
double PipingNsPerStore(IWQ_SessionDataStorageDb* storage, size_t perRound, size_t& failures)
{
    OneValue one;
    const double start = NowNs();
    for (size_t i = 0; i < perRound; ++i)
        failures += one.Store(storage) != S_OK;
    const double perCall = (NowNs() - start) / static_cast<double>(perRound);
    failures += storage->FlushAsyncStorage() != S_OK;
    return perCall;
}

// ns per synchronous WriteStringList of the same one-value list on the root itself: the write
// without the pipe.
double DirectNsPerWrite(IWQ_SessionDataIOEx* root, size_t perRound, size_t& failures)
{
    OneValue one;
    const double start = NowNs();
    for (size_t i = 0; i < perRound; ++i)
    {
        tagSESSIONDATAVALUE record{one.name, one.value};
        failures += root->WriteStringList(one.key, 1, &record) != S_OK;
    }
    return (NowNs() - start) / static_cast<double>(perRound);
}

// ns per PipeStorageRootCall of a one-value WriteStringList in one round, the functor made per
// call as the storage makes it (the delegator's share of StoreData).
double DelegatorPipingNs(XAsyncStorageDelegator& delegator, size_t perRound)
{
    using WriteFun = WQComFunctor::XFunP3<IWQ_SessionDataIOEx, &IWQ_SessionDataIOEx::WriteStringList, BSTR, ULONG,
                                          tagSESSIONDATAVALUE*>;
    OneValue one;
    const double start = NowNs();
    for (size_t i = 0; i < perRound; ++i)
    {
        tagSESSIONDATAVALUE record{one.name, one.value};
        delegator.PipeStorageRootCall(WQComFunctor::MakeOpFun(WriteFun(one.key, 1, &record)), one.key, 1);
    }
    const double perCall = (NowNs() - start) / static_cast<double>(perRound);
    delegator.FlushStorageCallPipe();
    return perCall;
}

// Calls per second that one flush drains in one round: perRound calls piped untimed, then the
// flush timed.
double DrainPerSecond(IWQ_SessionDataStorageDb* storage, size_t perRound, const std::function<long()>& reached,
                      size_t& failures)
{
    OneValue one;
    const long before = reached();
    for (size_t i = 0; i < perRound; ++i)
        failures += one.Store(storage) != S_OK;
    const double start = NowNs();
    failures += storage->FlushAsyncStorage() != S_OK;
    const double seconds = (NowNs() - start) / 1e9;
    failures += static_cast<size_t>(reached() - before) != perRound;
    return static_cast<double>(perRound) / seconds;
}

// Median ns from StoreData returning to the write reaching the root (arrival: the root's
// time of the last write), with a flush right after StoreData.
std::vector<double> StoreToRootNs(IWQ_SessionDataStorageDb* storage, const std::function<double()>& arrival,
                                  size_t& failures)
{
    OneValue one;
    std::vector<double> samples;
    const int count = BenchResults::Instance().Quick() ? 20 : 200;
    for (int i = -5; i < count; ++i)
    {
        failures += one.Store(storage) != S_OK;
        const double returned = NowNs();
        failures += storage->FlushAsyncStorage() != S_OK;
        if (i >= 0)
            samples.push_back((arrival() - returned) / 1000);
    }
    return samples;
}


void Show(const char* what, const BenchPair& pair, const char* unit)
{
    std::printf("  %-40s %12.1f %s, floor %12.1f, ratio %.2f\n", what, pair.Component(), unit, pair.Floor(),
                pair.Component() / pair.Floor());
}
} // namespace

void RunAsyncStorageBenchmarks()
{
    BenchResults& results = BenchResults::Instance();
    const int rounds = results.Rounds(kRounds);
    const size_t scale = results.Quick() ? 10 : 1;
    std::printf("\nasynchronous database storage (XSessionDataStorageDb::StoreData, interval 120 s), median of %d rounds\n",
                rounds);
    size_t failures = 0;
    XComPtr<CountingRoot> mtaRoot;
    mtaRoot.Attach(new XComObject<CountingRoot>());
    mtaRoot->AddRef();
    {
        XComPtr<IWQ_SessionDataStorageDb> storage = AsyncStorage(mtaRoot.Get());
        const BenchPair piping =
            BenchAlternate(rounds, [&] { return PipingNsPerStore(storage.Get(), 20000 / scale, failures); },
                           [&] { return DirectNsPerWrite(mtaRoot.Get(), 20000 / scale, failures); });
        results.AddRatio("async", "store", "StoreData of one value, piped", "ns", piping,
                         "the same WriteStringList called on the root directly (a root that does nothing)");
        Show("StoreData, one value, piped (ns)", piping, "ns");
        const BenchPair drain = BenchAlternate(
            rounds, [&] { return DrainPerSecond(storage.Get(), 100000 / scale, [&] { return mtaRoot->calls.load(); }, failures); },
            [&] { return 1e9 / DirectNsPerWrite(mtaRoot.Get(), 100000 / scale, failures); });
        results.AddRatio("async", "drain/mta", "drain rate to a root in the multithreaded apartment", "calls/s", drain,
                         "the same calls made on the root directly, per second");
        Show("drain to a root in the MTA (calls/s)", drain, "/s");
        CRITICAL_SECTION lock;
        ::InitializeCriticalSection(&lock);
        const BenchPair idle = BenchAlternate(
            rounds, [&] { return BenchNsPerCall(20000 / scale, [&] { failures += storage->FlushAsyncStorage() != S_OK; }); },
            [&] {
                return BenchNsPerCall(20000 / scale, [&] {
                    ::EnterCriticalSection(&lock);
                    ::LeaveCriticalSection(&lock);
                });
            });
        ::DeleteCriticalSection(&lock);
        results.AddRatio("async", "idle-flush", "FlushAsyncStorage with nothing pending", "ns", idle,
                         "one uncontended lock taken and released");
        Show("FlushAsyncStorage, nothing pending (ns)", idle, "ns");
        const std::vector<double> latency = StoreToRootNs(storage.Get(), [&] { return mtaRoot->lastWriteNs.load(); }, failures);
        results.AddValue("async", "latency/mta", "StoreData returned to the write reaching the root (MTA, flush right after)",
                         "us", latency);
        std::printf("  StoreData returned -> root (MTA):      %10.1f us (flush right after)\n", BenchSpreadOf(latency).median);
    }
    {
        XAsyncStorageDelegator delegator;
        delegator.SetStorageRoot(mtaRoot.Get());
        delegator.SetWriteInterval(120);
        std::vector<double> piping;
        for (int round = 0; round < rounds; ++round)
            piping.push_back(DelegatorPipingNs(delegator, 20000 / scale));
        results.AddValue("async", "delegator", "the delegator's share of StoreData: functor and pipe", "ns", piping);
        std::printf("  delegator alone: functor + pipe:       %10.1f ns per call\n", BenchSpreadOf(piping).median);
    }
    {
        StaRootHost sta;
        XComPtr<IWQ_SessionDataIOEx> proxy = sta.Proxy();
        XComPtr<IWQ_SessionDataStorageDb> storage = AsyncStorage(proxy.Get());
        const BenchPair drain = BenchAlternate(
            rounds, [&] { return DrainPerSecond(storage.Get(), 5000 / scale, [&] { return sta.Calls(); }, failures); },
            [&] { return 1e9 / DirectNsPerWrite(proxy.Get(), 5000 / scale, failures); });
        results.AddRatio("async", "drain/sta", "drain rate to a root in a single-threaded apartment", "calls/s", drain,
                         "the same calls made on the root's proxy directly, per second");
        Show("drain to a root in an STA (calls/s)", drain, "/s");
        const std::vector<double> latency = StoreToRootNs(storage.Get(), [&] { return sta.LastWriteNs(); }, failures);
        results.AddValue("async", "latency/sta", "StoreData returned to the write reaching the root (STA, flush right after)",
                         "us", latency);
        std::printf("  StoreData returned -> root (STA):      %10.1f us (flush right after)\n", BenchSpreadOf(latency).median);
    }
    if (failures)
        std::printf("warning: %zu calls failed\n", failures);
}
