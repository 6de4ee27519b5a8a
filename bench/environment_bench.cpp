// WriteStringList of 5,000 records into a category kept in the process environment (cached
// layer), in a process that has set 0, 3,000 and 12,000 other variables before, against its
// floor: the 5,000 SetEnvironmentVariableW calls of the same variables made directly. Each set
// of a variable scans the whole environment block (and copies it when it grows), so a list
// costs its length times the block's size, and the block grows with every variable the process
// set before: the figures show that growth in both and the manager's share of it (the ratio).
// A volatile category's list write of the same size is printed beside them for scale.
#include "environment_bench.h"

#include "benchclock.h"
#include "benchresults.h"
#include "xcomobject.h"
#include "xcomtypes.h"
#include "xsessiondataio.h"
#include "xsessiondatamng.h"
#include "xsessiondatastorageenv.h"
#include "xsessiondatastoragevolatile.h"

#include <windows.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace
{
const SESSIONDATATYPE kEnvironment = static_cast<SESSIONDATATYPE>(4);
const SESSIONDATATYPE kVolatile = static_cast<SESSIONDATATYPE>(5);
const ULONG kRecords = 5000;
const wchar_t kValue[] = L"0123456789012345678901234567890123456789";

// Value records that own their strings.
class Records
{
public:
    explicit Records(ULONG count)
    {
        for (ULONG i = 0; i < count; ++i)
        {
            m_names.emplace_back(L"r" + std::to_wstring(i));
            m_values.emplace_back(kValue);
        }
        for (ULONG i = 0; i < count; ++i)
            m_records.push_back(tagSESSIONDATAVALUE{m_names[i], m_values[i]});
    }
    ULONG Count() const { return static_cast<ULONG>(m_records.size()); }
    tagSESSIONDATAVALUE* Data() { return m_records.data(); }

private:
    std::vector<XWQComBSTR> m_names;
    std::vector<XWQComBSTR> m_values;
    std::vector<tagSESSIONDATAVALUE> m_records;
};

void SetVariables(const std::wstring& prefix, ULONG count, const wchar_t* value)
{
    for (ULONG i = 0; i < count; ++i)
        ::SetEnvironmentVariableW((prefix + std::to_wstring(i)).c_str(), value);
}

// The variables of the list as the storage names and orders them: key and value name in upper
// case, in the order of the value names.
std::vector<std::wstring> ListVariables(const std::wstring& upperKey, ULONG count)
{
    std::map<std::wstring, int> names;
    for (ULONG i = 0; i < count; ++i)
        names[L"r" + std::to_wstring(i)] = 0;
    std::vector<std::wstring> variables;
    for (const auto& name : names)
    {
        std::wstring variable = upperKey + L"/" + name.first;
        ::CharUpperBuffW(&variable[0], static_cast<DWORD>(variable.size()));
        variables.push_back(variable);
    }
    return variables;
}

void SetAll(const std::vector<std::wstring>& variables, const wchar_t* value)
{
    for (const std::wstring& variable : variables)
        ::SetEnvironmentVariableW(variable.c_str(), value);
}

XComPtr<IWQ_SessionDataIO> CachedLayerOver(IWQ_SessionDataStorage* storage)
{
    XComPtr<IWQ_SessionDataIO> io;
    XCreateComObject<XSessionDataIO>(nullptr, IID_IWQ_SessionDataIO, reinterpret_cast<void**>(io.ReleaseAndGetAddressOf()));
    io->SetStorage(storage);
    return io;
}

// Milliseconds of one WriteStringList of records under key.
double ListWriteMs(IWQ_SessionDataMng* mng, const wchar_t* key, Records& records, SESSIONDATATYPE category)
{
    const double start = NowNs();
    const HRESULT hr = mng->WriteStringList(XWQComBSTR(key), records.Count(), records.Data(), category);
    const double ms = (NowNs() - start) / 1e6;
    if (FAILED(hr))
        std::printf("warning: WriteStringList failed: 0x%08lX\n", static_cast<unsigned long>(hr));
    return ms;
}
} // namespace

void RunEnvironmentBenchmarks()
{
    XComPtr<IWQ_SessionDataMng> mng;
    XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng, reinterpret_cast<void**>(mng.ReleaseAndGetAddressOf()));
    XComPtr<IWQ_SessionDataStorage> environment;
    XCreateComObject<XSessionDataStorageEnv>(nullptr, IID_IWQ_SessionDataStorage,
                                             reinterpret_cast<void**>(environment.ReleaseAndGetAddressOf()));
    XComPtr<IWQ_SessionDataStorage> volatileStorage;
    XCreateComObject<XSessionDataStorageVolatile>(nullptr, IID_IWQ_SessionDataStorage,
                                                  reinterpret_cast<void**>(volatileStorage.ReleaseAndGetAddressOf()));
    mng->SetStorageIO(CachedLayerOver(environment.Get()).Get(), kEnvironment);
    mng->SetStorageIO(CachedLayerOver(volatileStorage.Get()).Get(), kVolatile);
    Records records(kRecords);
    const std::vector<std::wstring> variables = ListVariables(L"bench/list", kRecords);

    std::printf("\nWriteStringList of %lu records, environment category (cached) vs %lu SetEnvironmentVariableW\n",
                static_cast<unsigned long>(kRecords), static_cast<unsigned long>(kRecords));
    std::printf("%-24s %14s %14s %8s %14s\n", "variables set before", "manager ms", "platform ms", "ratio",
                "volatile ms");
    ULONG before = 0;
    const std::vector<ULONG> targets =
        BenchResults::Instance().Quick() ? std::vector<ULONG>{0ul} : std::vector<ULONG>{0ul, 3000ul, 12000ul};
    for (const ULONG target : targets)
    {
        SetVariables(L"BENCH/OTHER/K", target, kValue);  // grows the block to target others
        before = target;
        // Both write the same variables in the same order into the same block, which each
        // leaves as it found it; a first round grows the block's memory for both alike.
        SetAll(variables, kValue);
        SetAll(variables, nullptr);
        const double start = NowNs();
        SetAll(variables, kValue);
        const double platform = (NowNs() - start) / 1e6;
        SetAll(variables, nullptr);
        const double manager = ListWriteMs(mng.Get(), L"bench/list", records, kEnvironment);
        SetAll(variables, nullptr);
        const double volatileList = ListWriteMs(mng.Get(), L"bench/list", records, kVolatile);
        mng->FlushCache(kVolatile);
        BenchResults::Instance().AddRatio("environment", "list/" + std::to_string(target),
                                          "WriteStringList of 5,000 records into an environment category", "ms", {manager},
                                          "5,000 SetEnvironmentVariableW of the same variables", {platform},
                                          {{"variables_before", target}, {"volatile_ms", volatileList}});
        std::printf("%-24lu %14.1f %14.1f %8.2f %14.1f\n", static_cast<unsigned long>(target), manager, platform,
                    manager / platform, volatileList);
    }
    SetVariables(L"BENCH/OTHER/K", before, nullptr);
}
