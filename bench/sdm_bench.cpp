// A cached GetData hit through the manager against a bare baseline doing the same work:
//   manager: XSessionDataMng::GetData(VT_BSTR) on a category bound (SetStorageIO) to the cached
//            IO layer over the volatile storage, every value already in the cache;
//   baseline: a std::map<std::wstring, std::wstring> lookup, SysAllocString/SysFreeString and
//            VariantChangeType to VT_BSTR.
// Both read the same names in the same shuffled order, at 1,000 and 100,000 cached values, the
// names given in two ways:
//   prebuilt: one string per name made beforehand, read in shuffled order: at 100,000 values
//             the client's own name strings are out of the processor's caches too, so the
//             figure includes the client's memory accesses as well as the lookup's;
//   built:    the client formats the name into a fresh string just before the call, as a client
//             naming its values in code does: the name is in the cache, and the growth from
//             1,000 to 100,000 values is the lookup's own.
// Timing: QueryPerformanceCounter, a warm-up pass, the median of several rounds.
#include "asyncstorage_bench.h"
#include "environment_bench.h"
#include "ctl_bench.h"
#include "engines_bench.h"
#include "rootcall_bench.h"
#include "sqlstorage_bench.h"
#include "benchclock.h"
#include "xcomobject.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"
#include "xsessiondatamng.h"
#include "xsessiondatastoragevolatile.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace
{
const SESSIONDATATYPE kCategory = static_cast<SESSIONDATATYPE>(5);
const int kRounds = 9;
const size_t kReadsPerRound = 200000;

double Now()
{
    return NowNs();
}

// Median nanoseconds per read of body(name index) over kRounds rounds, after one warm-up round.
template <class Body>
double MedianNsPerRead(const std::vector<size_t>& order, Body body)
{
    std::vector<double> rounds;
    for (int round = -1; round < kRounds; ++round)
    {
        const double start = Now();
        for (size_t i = 0; i < kReadsPerRound; ++i)
            body(order[i % order.size()]);
        const double perRead = (Now() - start) / kReadsPerRound;
        if (round >= 0)
            rounds.push_back(perRead);
    }
    std::sort(rounds.begin(), rounds.end());
    return rounds[rounds.size() / 2];
}

struct Figures
{
    double manager = 0;
    double layer = 0;  // the IO layer's GetData alone, for the split of the manager's figure
    double baseline = 0;
    double managerBuilt = 0;   // names built at the call
    double baselineBuilt = 0;
};

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

Figures Measure(size_t values)
{
    const XWQComBSTR key(L"Benchmark\\Session");
    std::vector<XWQComBSTR> names;
    std::vector<std::wstring> plainNames;
    for (size_t i = 0; i < values; ++i)
    {
        plainNames.push_back(L"value" + std::to_wstring(i));
        names.emplace_back(plainNames.back());
    }
    std::vector<size_t> order(values);
    for (size_t i = 0; i < values; ++i)
        order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(12345));

    // The manager, its cached volatile category and the cached values.
    XComPtr<IWQ_SessionDataMng> mng;
    XComPtr<IWQ_SessionDataStorage> storage;
    XComPtr<IWQ_SessionDataIO> io;
    XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng, reinterpret_cast<void**>(mng.ReleaseAndGetAddressOf()));
    XCreateComObject<XSessionDataStorageVolatile>(nullptr, IID_IWQ_SessionDataStorage,
                                                  reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf()));
    XCreateComObject<XSessionDataIO>(nullptr, IID_IWQ_SessionDataIO, reinterpret_cast<void**>(io.ReleaseAndGetAddressOf()));
    io->SetStorage(storage.Get());
    mng->SetStorageIO(io.Get(), kCategory);
    for (size_t i = 0; i < values; ++i)
    {
        const XWQComBSTR text(L"text of " + plainNames[i]);
        io->WriteData(key, names[i], text);
    }

    std::map<std::wstring, std::wstring> baselineMap;
    for (size_t i = 0; i < values; ++i)
        baselineMap[plainNames[i]] = L"text of " + plainNames[i];

    Figures figures;
    size_t failures = 0;
    figures.manager = MedianNsPerRead(order, [&](size_t i) { failures += !ManagerRead(mng.Get(), key, names[i]); });
    figures.layer = MedianNsPerRead(order, [&](size_t i) {
        BSTR value = nullptr;
        failures += io->GetData(key, names[i], &value) != S_OK;
        ::SysFreeString(value);
    });
    figures.baseline = MedianNsPerRead(order, [&](size_t i) { failures += !BaselineRead(baselineMap, plainNames[i]); });
    figures.managerBuilt = MedianNsPerRead(order, [&](size_t i) {
        wchar_t buffer[32];
        const int length = FormatName(i, buffer);
        failures += !ManagerRead(mng.Get(), key, XWQComBSTR(buffer, static_cast<UINT>(length)));
    });
    std::wstring lookup;
    figures.baselineBuilt = MedianNsPerRead(order, [&](size_t i) {
        wchar_t buffer[32];
        lookup.assign(buffer, static_cast<size_t>(FormatName(i, buffer)));
        failures += !BaselineRead(baselineMap, lookup);
    });
    if (failures)
        std::printf("warning: %zu reads failed\n", failures);
    mng->FlushCache(kCategory);
    return figures;
}
// One line of figures; layer is measured with prebuilt names only (0: not measured).
void PrintSizes(const char* names, size_t values, double manager, double baseline, double layer)
{
    char layerText[32] = "-";
    if (layer > 0)
        std::snprintf(layerText, sizeof layerText, "%.1f", layer);
    std::printf("%-9s %10zu %14.1f %14s %14.1f %8.2f\n", names, values, manager, layerText, baseline,
                manager / baseline);
}

void PrintScaling(const char* names, std::vector<double> scalings)
{
    std::sort(scalings.begin(), scalings.end());
    std::printf("%-9s manager at 100,000 / at 1,000 over %zu pairs: median %.2f (%.2f to %.2f)\n", names,
                scalings.size(), scalings[scalings.size() / 2], scalings.front(), scalings.back());
}
} // namespace

int main(int argc, char** argv)
{
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const std::string only = argc > 1 ? argv[1] : "";
    // "nothing-host <ready> <stop>": the do-nothing object of the root benchmark, as its child.
    if (only == "nothing-host" && argc > 3)
    {
        const int result = RunNothingHost(std::wstring(argv[2], argv[2] + std::strlen(argv[2])).c_str(),
                                          std::wstring(argv[3], argv[3] + std::strlen(argv[3])).c_str());
        ::CoUninitialize();
        return result;
    }
    wchar_t program[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, program, MAX_PATH);
    // "environment", "sql", "root", "engines": one group only.
    if (only == "environment" || only == "sql" || only == "root" || only == "engines" || only == "ctl")
    {
        if (only == "ctl")
            RunCtlBenchmarks(program);
        else if (only == "engines")
            RunEngineBenchmarks();
        else if (only == "environment")
            RunEnvironmentBenchmarks();
        else if (only == "sql")
            RunSqlStorageBenchmarks();
        else
            RunRootCallBenchmarks(program);
        ::CoUninitialize();
        return 0;
    }
    // The machine's speed drifts between measurements (shared cores): the two sizes are measured
    // in pairs, one right after the other, and the scaling is given per pair.
    const int kPairs = 5;
    std::printf("cached GetData hit through the manager (VT_BSTR) vs bare baseline, median of %d rounds,\n"
                "%d pairs of measurements at 1,000 and 100,000 values\n",
                kRounds, kPairs);
    std::printf("%-9s %10s %14s %14s %14s %8s\n", "names", "values", "manager ns", "(layer ns)", "baseline ns", "ratio");
    std::vector<double> prebuilt;
    std::vector<double> built;
    for (int pair = 0; pair < kPairs; ++pair)
    {
        const Figures small = Measure(1000);
        const Figures large = Measure(100000);
        PrintSizes("prebuilt", 1000, small.manager, small.baseline, small.layer);
        PrintSizes("prebuilt", 100000, large.manager, large.baseline, large.layer);
        PrintSizes("built", 1000, small.managerBuilt, small.baselineBuilt, 0);
        PrintSizes("built", 100000, large.managerBuilt, large.baselineBuilt, 0);
        prebuilt.push_back(large.manager / small.manager);
        built.push_back(large.managerBuilt / small.managerBuilt);
        std::printf("  manager at 100,000 / at 1,000: prebuilt names %.2f, built names %.2f\n", prebuilt.back(),
                    built.back());
    }
    PrintScaling("prebuilt", prebuilt);
    PrintScaling("built", built);
    RunAsyncStorageBenchmarks();
    RunEnvironmentBenchmarks();
    RunSqlStorageBenchmarks();
    RunRootCallBenchmarks(program);
    RunEngineBenchmarks();
    RunCtlBenchmarks(program);
    ::CoUninitialize();
    return 0;
}
