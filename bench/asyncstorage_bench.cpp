// Asynchronous writes of the database storage (XSessionDataStorageDb in asynchronous mode over
// its XAsyncStorageDelegator):
//   - StoreData of a one-value list: the cost of piping on the caller's thread, per call;
//   - the worker's drain rate: calls run per second by one flush, to a free-threaded root in
//     the multithreaded apartment (called directly) and to a root in a message-pumping
//     single-threaded apartment (called through the proxy);
//   - FlushAsyncStorage with nothing pending;
//   - the latency of one write: from StoreData returning (a flush follows at once) to the call
//     reaching the root.
// Timing: QueryPerformanceCounter, a warm-up round, the median of several rounds.
#include "asyncstorage_bench.h"

#include "benchclock.h"
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
double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

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

// Median ns per StoreData of a one-value list (piping only; each round is flushed untimed).
double PipingNsPerStore(IWQ_SessionDataStorageDb* storage, size_t perRound, size_t& failures)
{
    OneValue one;
    std::vector<double> rounds;
    for (int round = -1; round < kRounds; ++round)
    {
        const double start = NowNs();
        for (size_t i = 0; i < perRound; ++i)
            failures += one.Store(storage) != S_OK;
        const double perCall = (NowNs() - start) / static_cast<double>(perRound);
        failures += storage->FlushAsyncStorage() != S_OK;
        if (round >= 0)
            rounds.push_back(perCall);
    }
    return Median(rounds);
}

// Median ns per PipeStorageRootCall of a one-value WriteStringList, the functor made per call
// as the storage makes it (the delegator's share of StoreData).
double DelegatorPipingNs(XAsyncStorageDelegator& delegator, size_t perRound, size_t& failures)
{
    using WriteFun = WQComFunctor::XFunP3<IWQ_SessionDataIOEx, &IWQ_SessionDataIOEx::WriteStringList, BSTR, ULONG,
                                          tagSESSIONDATAVALUE*>;
    OneValue one;
    std::vector<double> rounds;
    for (int round = -1; round < kRounds; ++round)
    {
        const double start = NowNs();
        for (size_t i = 0; i < perRound; ++i)
        {
            tagSESSIONDATAVALUE record{one.name, one.value};
            delegator.PipeStorageRootCall(WQComFunctor::MakeOpFun(WriteFun(one.key, 1, &record)), one.key, 1);
        }
        const double perCall = (NowNs() - start) / static_cast<double>(perRound);
        delegator.FlushStorageCallPipe();
        if (round >= 0)
            rounds.push_back(perCall);
    }
    return Median(rounds);
}

// Calls per second that one flush drains: perRound calls piped untimed, then the flush timed.
double DrainPerSecond(IWQ_SessionDataStorageDb* storage, size_t perRound, int rounds,
                      const std::function<long()>& reached, size_t& failures)
{
    OneValue one;
    std::vector<double> rates;
    for (int round = -1; round < rounds; ++round)
    {
        const long before = reached();
        for (size_t i = 0; i < perRound; ++i)
            failures += one.Store(storage) != S_OK;
        const double start = NowNs();
        failures += storage->FlushAsyncStorage() != S_OK;
        const double seconds = (NowNs() - start) / 1e9;
        failures += static_cast<size_t>(reached() - before) != perRound;
        if (round >= 0)
            rates.push_back(static_cast<double>(perRound) / seconds);
    }
    return Median(rates);
}

// Median ns from StoreData returning to the write reaching the root (arrival: the root's
// time of the last write), with a flush right after StoreData.
double StoreToRootNs(IWQ_SessionDataStorageDb* storage, const std::function<double()>& arrival, size_t& failures)
{
    OneValue one;
    std::vector<double> samples;
    for (int i = -5; i < 201; ++i)
    {
        failures += one.Store(storage) != S_OK;
        const double returned = NowNs();
        failures += storage->FlushAsyncStorage() != S_OK;
        if (i >= 0)
            samples.push_back(arrival() - returned);
    }
    return Median(samples);
}

// Median ns per flush with nothing pending.
template <class Flush>
double IdleFlushNs(Flush flush, size_t& failures)
{
    const size_t perRound = 20000;
    std::vector<double> rounds;
    for (int round = -1; round < kRounds; ++round)
    {
        const double start = NowNs();
        for (size_t i = 0; i < perRound; ++i)
            failures += !flush();
        if (round >= 0)
            rounds.push_back((NowNs() - start) / static_cast<double>(perRound));
    }
    return Median(rounds);
}
} // namespace

void RunAsyncStorageBenchmarks()
{
    std::printf("\nasynchronous database storage (XSessionDataStorageDb::StoreData, interval 120 s), median of %d rounds\n",
                kRounds);
    size_t failures = 0;

    XComPtr<CountingRoot> mtaRoot;
    mtaRoot.Attach(new XComObject<CountingRoot>());
    mtaRoot->AddRef();
    {
        XComPtr<IWQ_SessionDataStorageDb> storage = AsyncStorage(mtaRoot.Get());
        std::printf("  StoreData, one value, piped:           %10.1f ns per call\n",
                    PipingNsPerStore(storage.Get(), 20000, failures));
        std::printf("  drain to a root in the MTA:            %10.0f calls/s (100,000 per flush)\n",
                    DrainPerSecond(storage.Get(), 100000, 5, [&] { return mtaRoot->calls.load(); }, failures));
        std::printf("  FlushAsyncStorage, nothing pending:    %10.1f ns per call\n",
                    IdleFlushNs([&] { return storage->FlushAsyncStorage() == S_OK; }, failures));
        std::printf("  StoreData returned -> root (MTA):      %10.1f us (flush right after)\n",
                    StoreToRootNs(storage.Get(), [&] { return mtaRoot->lastWriteNs.load(); }, failures) / 1000);
    }
    {
        XAsyncStorageDelegator delegator;
        delegator.SetStorageRoot(mtaRoot.Get());
        delegator.SetWriteInterval(120);
        std::printf("  delegator alone: functor + pipe:       %10.1f ns per call\n",
                    DelegatorPipingNs(delegator, 20000, failures));
        std::printf("  FlushStorageCallPipe, nothing pending: %10.1f ns per call\n", IdleFlushNs([&] {
                        delegator.FlushStorageCallPipe();
                        return true;
                    }, failures));
    }
    {
        StaRootHost sta;
        XComPtr<IWQ_SessionDataIOEx> proxy = sta.Proxy();
        XComPtr<IWQ_SessionDataStorageDb> storage = AsyncStorage(proxy.Get());
        std::printf("  drain to a root in an STA (proxy):     %10.0f calls/s (5,000 per flush)\n",
                    DrainPerSecond(storage.Get(), 5000, 5, [&] { return sta.Calls(); }, failures));
        std::printf("  StoreData returned -> root (STA):      %10.1f us (flush right after)\n",
                    StoreToRootNs(storage.Get(), [&] { return sta.LastWriteNs(); }, failures) / 1000);
    }
    if (failures)
        std::printf("warning: %zu calls failed\n", failures);
}
