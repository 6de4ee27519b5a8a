// Uncached reads and writes through the manager over the registry and over the environment,
// against the platform calls that the same work needs, side by side in one run:
//   registry read: GetData (VT_BSTR) of one value of a 10-value key on an uncached category,
//     which reads the whole key, against the same calls made directly (open the key, query its
//     info, enumerate and query each value, close) and against one RegGetValueW of the value;
//     also counted in wine-server round trips (one SetEvent, measured in the same rounds): under
//     Wine every registry call is one;
//   registry write: WriteData of one value, against RegCreateKeyExW, RegSetValueExW, RegCloseKey;
//   environment read and write: GetData and WriteData of one value on an uncached environment
//     category, against GetEnvironmentVariableW and SetEnvironmentVariableW.
#include "platform_bench.h"

#include "XWQComBSTR.h"
#include "benchclock.h"
#include "benchresults.h"
#include "xcomobject.h"
#include "xsessiondataionocache.h"
#include "xsessiondatamng.h"
#include "xsessiondatastorageenv.h"
#include "xsessiondatastoragereg.h"

#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

namespace
{
const SESSIONDATATYPE kRegistry = static_cast<SESSIONDATATYPE>(3);
const SESSIONDATATYPE kEnvironment = static_cast<SESSIONDATATYPE>(1);
const int kValues = 10;
const char kGroup[] = "platform";


XComPtr<IWQ_SessionDataIO> UncachedLayerOver(IWQ_SessionDataStorage* storage)
{
    XComPtr<IWQ_SessionDataIO> io;
    XCreateComObject<XSessionDataIONoCache>(nullptr, IID_IWQ_SessionDataIO, reinterpret_cast<void**>(io.ReleaseAndGetAddressOf()));
    io->SetStorage(storage);
    return io;
}

bool ManagerRead(IWQ_SessionDataMng* mng, BSTR key, BSTR name, SESSIONDATATYPE category)
{
    VARIANT value;
    ::VariantInit(&value);
    const bool found = mng->GetData(key, name, VT_BSTR, &value, category) == S_OK;
    ::VariantClear(&value);
    return found;
}

bool ManagerWrite(IWQ_SessionDataMng* mng, BSTR key, BSTR name, BSTR text, SESSIONDATATYPE category)
{
    VARIANT value;
    value.vt = VT_BSTR;
    value.bstrVal = text;
    return mng->WriteData(key, name, value, category) == S_OK;
}

// What the registry storage's read of a key does, made directly.
bool RawKeyRead(HKEY app, const wchar_t* path)
{
    HKEY key = nullptr;
    if (::RegOpenKeyExW(app, path, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return false;
    DWORD count = 0;
    DWORD longest = 0;
    ::RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, &longest, nullptr, nullptr,
                       nullptr);
    std::vector<wchar_t> name(longest + 1);
    wchar_t data[256];
    for (DWORD i = 0; i < count; ++i)
    {
        DWORD length = static_cast<DWORD>(name.size());
        DWORD size = 0;
        ::RegEnumValueW(key, i, name.data(), &length, nullptr, nullptr, nullptr, &size);
        DWORD bytes = sizeof data;
        ::RegQueryValueExW(key, name.data(), nullptr, nullptr, reinterpret_cast<BYTE*>(data), &bytes);
    }
    ::RegCloseKey(key);
    return count == kValues;
}

bool RawWrite(HKEY app, const wchar_t* path, const wchar_t* name, const wchar_t* text)
{
    HKEY key = nullptr;
    if (::RegCreateKeyExW(app, path, 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr) != ERROR_SUCCESS)
        return false;
    const bool set = ::RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                                      static_cast<DWORD>((wcslen(text) + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
    ::RegCloseKey(key);
    return set;
}

void Show(const char* what, const BenchPair& pair, const char* floor)
{
    std::printf("  %-34s %10.2f us  %-34s %10.2f us  %6.2f\n", what, pair.Component() / 1000, floor, pair.Floor() / 1000,
                pair.Component() / pair.Floor());
}

void Registry(IWQ_SessionDataMng* mng, int rounds, size_t calls, size_t& failures)
{
    BenchResults& results = BenchResults::Instance();
    const std::wstring root = L"Software\\WQSessionDataMng-bench-" + std::to_wstring(::GetCurrentProcessId());
    XComPtr<IWQ_SessionDataStorageReg> storage;
    XCreateComObject<XSessionDataStorageReg>(nullptr, IID_IWQ_SessionDataStorageReg,
                                             reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf()));
    storage->Initialize(static_cast<SESSIONDATAREGKEY>(1), XWQComBSTR(root.c_str()), 0);
    mng->SetStorageIO(UncachedLayerOver(storage.Get()).Get(), kRegistry);
    HKEY app = nullptr;
    ::RegCreateKeyExW(HKEY_CURRENT_USER, root.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &app, nullptr);
    const XWQComBSTR key(L"Bench\\Session");
    for (int i = 0; i < kValues; ++i)
        RawWrite(app, key, (L"value" + std::to_wstring(i)).c_str(), L"the text of a value");
    const XWQComBSTR name(L"value3");
    const XWQComBSTR text(L"the text of a value");
    HANDLE event = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);

    std::vector<double> read, raw, one, roundTrip;
    for (int round = -1; round < rounds; ++round)
    {
        const double r = BenchNsPerCall(calls, [&] { failures += !ManagerRead(mng, key, name, kRegistry); });
        const double w = BenchNsPerCall(calls, [&] { failures += !RawKeyRead(app, key); });
        const double g = BenchNsPerCall(calls, [&] {
            wchar_t data[256];
            DWORD bytes = sizeof data;
            failures += ::RegGetValueW(app, key, name, RRF_RT_REG_SZ, nullptr, data, &bytes) != ERROR_SUCCESS;
        });
        const double s = BenchNsPerCall(calls, [&] { ::SetEvent(event); });
        if (round < 0)
            continue;
        read.push_back(r);
        raw.push_back(w);
        one.push_back(g);
        roundTrip.push_back(s);
    }
    results.AddRatio(kGroup, "registry/read/raw", "uncached registry GetData (10-value key)", "ns", read,
                     "the same registry calls made directly", raw, {{"values", kValues}}, 1.1);
    results.AddRatio(kGroup, "registry/read/one", "uncached registry GetData (10-value key)", "ns", read,
                     "one RegGetValueW of the value", one, {{"values", kValues}});
    results.AddRatio(kGroup, "registry/read/round-trips", "uncached registry GetData, in wine-server round trips", "ns",
                     read, "one wine-server round trip (SetEvent)", roundTrip, {{"values", kValues}});
    Show("registry GetData, uncached", {read, raw}, "the same calls directly");
    Show("registry GetData, uncached", {read, one}, "one RegGetValueW");
    Show("registry GetData, uncached", {read, roundTrip}, "one SetEvent (round trips)");

    const BenchPair write = BenchAlternate(
        rounds, [&] { return BenchNsPerCall(calls, [&] { failures += !ManagerWrite(mng, key, name, text, kRegistry); }); },
        [&] { return BenchNsPerCall(calls, [&] { failures += !RawWrite(app, key, name, text); }); });
    results.AddRatio(kGroup, "registry/write", "uncached registry WriteData", "ns", write,
                     "RegCreateKeyExW, RegSetValueExW, RegCloseKey");
    Show("registry WriteData, uncached", write, "create, set, close directly");
    ::CloseHandle(event);
    ::RegCloseKey(app);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, root.c_str());
}

void Environment(IWQ_SessionDataMng* mng, int rounds, size_t calls, size_t& failures)
{
    BenchResults& results = BenchResults::Instance();
    XComPtr<IWQ_SessionDataStorage> storage;
    XCreateComObject<XSessionDataStorageEnv>(nullptr, IID_IWQ_SessionDataStorage,
                                             reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf()));
    const XWQComBSTR key(L"Bench/Session");
    const XWQComBSTR name(L"value3");
    const XWQComBSTR text(L"the text of a value");
    ::SetEnvironmentVariableW(L"BENCH/SESSION/VALUE3", text);
    // The storage reads the environment once, at its first read: bound after the variable is set.
    mng->SetStorageIO(UncachedLayerOver(storage.Get()).Get(), kEnvironment);
    const BenchPair read = BenchAlternate(
        rounds, [&] { return BenchNsPerCall(calls, [&] { failures += !ManagerRead(mng, key, name, kEnvironment); }); },
        [&] {
            return BenchNsPerCall(calls, [&] {
                wchar_t data[256];
                failures += ::GetEnvironmentVariableW(L"BENCH/SESSION/VALUE3", data, 256) == 0;
            });
        });
    results.AddRatio(kGroup, "environment/read", "uncached environment GetData", "ns", read, "GetEnvironmentVariableW");
    Show("environment GetData, uncached", read, "GetEnvironmentVariableW");
    const BenchPair write = BenchAlternate(
        rounds, [&] { return BenchNsPerCall(calls, [&] { failures += !ManagerWrite(mng, key, name, text, kEnvironment); }); },
        [&] { return BenchNsPerCall(calls, [&] { failures += !::SetEnvironmentVariableW(L"BENCH/SESSION/VALUE3", text); }); });
    results.AddRatio(kGroup, "environment/write", "uncached environment WriteData", "ns", write, "SetEnvironmentVariableW");
    Show("environment WriteData, uncached", write, "SetEnvironmentVariableW");
    ::SetEnvironmentVariableW(L"BENCH/SESSION/VALUE3", nullptr);
}
} // namespace

void RunPlatformBenchmarks()
{
    const int rounds = BenchResults::Instance().Rounds(7);
    const size_t calls = BenchResults::Instance().Quick() ? 200 : 2000;
    XComPtr<IWQ_SessionDataMng> mng;
    XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng, reinterpret_cast<void**>(mng.ReleaseAndGetAddressOf()));
    std::printf("\nuncached reads and writes against the platform calls they need, median of %d rounds of %zu calls\n",
                rounds, calls);
    size_t failures = 0;
    Registry(mng.Get(), rounds, calls, failures);
    Environment(mng.Get(), rounds, calls, failures);
    mng->FlushCache(kRegistry);
    if (failures)
        std::printf("warning: %zu calls failed\n", failures);
}
