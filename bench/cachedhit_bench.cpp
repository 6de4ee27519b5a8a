// A cached GetData hit through the manager against a bare baseline doing the same work:
//   manager: XSessionDataMng::GetData(VT_BSTR) on a category bound (SetStorageIO) to the cached
//            IO layer over the volatile storage, every value already in the cache;
//   baseline: a std::map<std::wstring, std::wstring> lookup, SysAllocString/SysFreeString and
//            VariantChangeType to VT_BSTR.
// Both read the same names in the same shuffled order, from 10 to 1,000,000 cached values, the
// names given in two ways:
//   prebuilt: one string per name made beforehand, read in shuffled order: with many values the
//             client's own name strings are out of the processor's caches too, so the figure
//             includes the client's memory accesses as well as the lookup's;
//   built:    the client formats the name into a fresh string just before the call, as a client
//             naming its values in code does: the name is in the cache, and the growth with the
//             number of values is the lookup's own.
// Each round measures the manager and the baseline one right after the other; the ratio is taken
// per round. Also: the heap bytes the cache holds per value against the value's payload, and a
// mixed read/write workload from 1, 2, 4 and 8 threads.
#include "cachedhit_bench.h"

#include "benchclock.h"
#include "benchresults.h"
#include "processresources.h"
#include "xcomobject.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"
#include "xsessiondatamng.h"
#include "xsessiondatastoragevolatile.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace
{
const SESSIONDATATYPE kCategory = static_cast<SESSIONDATATYPE>(5);
const char kGroup[] = "cached-hit";

// The manager's read of one value, as VT_BSTR; whether it was found.
bool ManagerRead(IWQ_SessionDataMng* mng, BSTR key, BSTR name)
{
    VARIANT value;
    ::VariantInit(&value);
    const bool found = mng->GetData(key, name, VT_BSTR, &value, kCategory) == S_OK;
    ::VariantClear(&value);
    return found;
}

// The baseline's same work: the lookup, a BSTR of the text, the conversion to VT_BSTR.
bool BaselineRead(const std::map<std::wstring, std::wstring>& map, const std::wstring& name)
{
    const auto found = map.find(name);
    VARIANT value;
    ::VariantInit(&value);
    value.vt = VT_BSTR;
    value.bstrVal = ::SysAllocString(found->second.c_str());
    const bool converted = ::VariantChangeType(&value, &value, 0, VT_BSTR) == S_OK;
    ::SysFreeString(value.bstrVal);
    return converted;
}

// Writes the benchmark's name of value i into buffer; its length.
int FormatName(size_t i, wchar_t (&buffer)[32])
{
    return std::swprintf(buffer, 32, L"value%zu", i);
}

// Nanoseconds per read of body(name index) over reads reads.
template <class Body>
double NsPerRead(const std::vector<size_t>& order, size_t reads, Body body)
{
    const double start = NowNs();
    for (size_t i = 0; i < reads; ++i)
        body(order[i % order.size()]);
    return (NowNs() - start) / reads;
}

// A manager with a cached volatile category holding values values, and the baseline's map.
struct Cache
{
    explicit Cache(size_t values) : key(L"Benchmark\\Session")
    {
        for (size_t i = 0; i < values; ++i)
        {
            plainNames.push_back(L"value" + std::to_wstring(i));
            names.emplace_back(plainNames.back());
            order.push_back(i);
        }
        std::shuffle(order.begin(), order.end(), std::mt19937(12345));
        XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng, reinterpret_cast<void**>(mng.ReleaseAndGetAddressOf()));
        XCreateComObject<XSessionDataStorageVolatile>(nullptr, IID_IWQ_SessionDataStorage,
                                                      reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf()));
        XCreateComObject<XSessionDataIO>(nullptr, IID_IWQ_SessionDataIO, reinterpret_cast<void**>(io.ReleaseAndGetAddressOf()));
        io->SetStorage(storage.Get());
        mng->SetStorageIO(io.Get(), kCategory);
        const size_t heapBefore = OwnHeapBytes();
        for (size_t i = 0; i < values; ++i)
        {
            const std::wstring text = L"text of " + plainNames[i];
            payloadBytes += (key.Length() + plainNames[i].size() + text.size()) * sizeof(wchar_t);
            io->WriteData(key, names[i], XWQComBSTR(text));
        }
        cacheBytes = static_cast<double>(OwnHeapBytes()) - static_cast<double>(heapBefore);
        for (size_t i = 0; i < values; ++i)
            map[plainNames[i]] = L"text of " + plainNames[i];
    }
    ~Cache() { mng->FlushCache(kCategory); }

    XWQComBSTR key;
    std::vector<XWQComBSTR> names;
    std::vector<std::wstring> plainNames;
    std::vector<size_t> order;
    XComPtr<IWQ_SessionDataMng> mng;
    XComPtr<IWQ_SessionDataStorage> storage;
    XComPtr<IWQ_SessionDataIO> io;
    std::map<std::wstring, std::wstring> map;
    double payloadBytes = 0;
    double cacheBytes = 0;
};

struct Rounds
{
    std::vector<double> manager, baseline, managerBuilt, baselineBuilt;
};

Rounds Measure(Cache& cache, int rounds, size_t reads)
{
    Rounds result;
    size_t failures = 0;
    std::wstring lookup;
    for (int round = -1; round < rounds; ++round)  // round -1 warms up
    {
        const double manager = NsPerRead(cache.order, reads, [&](size_t i) {
            failures += !ManagerRead(cache.mng.Get(), cache.key, cache.names[i]);
        });
        const double baseline =
            NsPerRead(cache.order, reads, [&](size_t i) { failures += !BaselineRead(cache.map, cache.plainNames[i]); });
        const double managerBuilt = NsPerRead(cache.order, reads, [&](size_t i) {
            wchar_t buffer[32];
            const int length = FormatName(i, buffer);
            failures += !ManagerRead(cache.mng.Get(), cache.key, XWQComBSTR(buffer, static_cast<UINT>(length)));
        });
        const double baselineBuilt = NsPerRead(cache.order, reads, [&](size_t i) {
            wchar_t buffer[32];
            lookup.assign(buffer, static_cast<size_t>(FormatName(i, buffer)));
            failures += !BaselineRead(cache.map, lookup);
        });
        if (round < 0)
            continue;
        result.manager.push_back(manager);
        result.baseline.push_back(baseline);
        result.managerBuilt.push_back(managerBuilt);
        result.baselineBuilt.push_back(baselineBuilt);
    }
    if (failures)
        std::printf("warning: %zu reads failed\n", failures);
    return result;
}

void Print(const char* names, size_t values, const std::vector<double>& manager, const std::vector<double>& baseline)
{
    const BenchSpread m = BenchSpreadOf(manager);
    const BenchSpread b = BenchSpreadOf(baseline);
    std::printf("%-9s %10zu %12.1f %12.1f %8.2f\n", names, values, m.median, b.median, m.median / b.median);
}

void Curve()
{
    BenchResults& results = BenchResults::Instance();
    std::vector<size_t> sizes = {10, 100, 1000, 10000, 100000, 1000000};
    if (results.Quick())
        sizes = {10, 100, 1000};
    const int rounds = results.Rounds(7);
    const size_t reads = results.Quick() ? 20000 : 200000;
    std::printf("cached GetData hit through the manager (VT_BSTR) vs bare map lookup, median of %d rounds\n", rounds);
    std::printf("%-9s %10s %12s %12s %8s\n", "names", "values", "manager ns", "baseline ns", "ratio");
    std::map<size_t, std::vector<double>> built;
    for (const size_t values : sizes)
    {
        Cache cache(values);
        const Rounds r = Measure(cache, rounds, reads);
        const double target = values == 1000 ? 1.5 : 0;
        const nlohmann::json prebuiltParams = {{"values", values}, {"names", "prebuilt"}};
        const nlohmann::json builtParams = {{"values", values}, {"names", "built"}};
        results.AddRatio(kGroup, "prebuilt/" + std::to_string(values), "cached GetData hit, prebuilt names", "ns",
                         r.manager, "map lookup with the same BSTR and VARIANT work", r.baseline, prebuiltParams, target);
        results.AddRatio(kGroup, "built/" + std::to_string(values), "cached GetData hit, names built at the call", "ns",
                         r.managerBuilt, "map lookup with the same BSTR and VARIANT work", r.baselineBuilt, builtParams,
                         target);
        Print("prebuilt", values, r.manager, r.baseline);
        Print("built", values, r.managerBuilt, r.baselineBuilt);
        built[values] = r.managerBuilt;
        // The heap the cache holds per value, against what the value is (key, name and text).
        results.AddRatio("memory", "per-value/" + std::to_string(values), "heap bytes per cached value", "bytes",
                         {cache.cacheBytes / values}, "the value's payload (key, name and text, UTF-16)",
                         {cache.payloadBytes / values}, {{"values", values}}, values == 1000 || values == 100000 ? 3 : 0);
        std::printf("  memory: %.0f heap bytes per value for %.0f bytes of payload (%.2f)\n", cache.cacheBytes / values,
                    cache.payloadBytes / values, cache.cacheBytes / cache.payloadBytes);
    }
    // The lookup's own growth: the read with names built at the call, at 100,000 against 1,000.
    if (built.count(1000) && built.count(100000))
        results.AddRatio(kGroup, "growth/built", "growth of a cached hit from 1,000 to 100,000 values (names built)",
                         "ns", built[100000], "the same read at 1,000 values", built[1000], {{"from", 1000}, {"to", 100000}},
                         2);
}

// A mixed workload (4 reads to 1 write, every read a hit) from threads threads on one cached
// volatile category through the manager, each thread on names of its own; operations per second.
double MixedThroughput(Cache& cache, int threads, size_t operationsPerThread)
{
    std::vector<std::thread> workers;
    const double start = NowNs();
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&cache, t, threads, operationsPerThread] {
            ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            const XWQComBSTR text(L"written");
            for (size_t i = 0; i < operationsPerThread; ++i)
            {
                const size_t index = (i * threads + t) % cache.names.size();
                if (i % 5 == 4)
                {
                    VARIANT value;
                    value.vt = VT_BSTR;
                    value.bstrVal = text;
                    cache.mng->WriteData(cache.key, cache.names[index], value, kCategory);
                }
                else
                    ManagerRead(cache.mng.Get(), cache.key, cache.names[index]);
            }
            ::CoUninitialize();
        });
    for (std::thread& worker : workers)
        worker.join();
    return threads * operationsPerThread / ((NowNs() - start) / 1e9);
}

void Threads()
{
    BenchResults& results = BenchResults::Instance();
    const int rounds = results.Rounds(5);
    const size_t operations = results.Quick() ? 20000 : 200000;
    Cache cache(1000);
    std::printf("mixed workload (80 %% hits, 20 %% writes) on one cached category, operations per second, median of %d "
                "rounds\n",
                rounds);
    std::vector<double> one;
    std::map<int, std::vector<double>> rates;
    for (int round = 0; round < rounds; ++round)
        for (const int threads : {1, 2, 4, 8})
            rates[threads].push_back(MixedThroughput(cache, threads, operations / threads));
    for (const int threads : {1, 2, 4, 8})
    {
        results.AddRatio("threads", std::to_string(threads), "mixed read/write workload", "operations/s", rates[threads],
                         "one thread", rates[1], {{"threads", threads}});
        std::printf("  %d threads: %.0f/s (%.2f of one thread)\n", threads, BenchSpreadOf(rates[threads]).median,
                    BenchSpreadOf(rates[threads]).median / BenchSpreadOf(rates[1]).median);
    }
}
} // namespace

void RunCachedHitBenchmarks()
{
    Curve();
    Threads();
}
