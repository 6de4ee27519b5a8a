// The storage root on SQLite and on PostgreSQL, side by side in one run, each figure the median
// of several rounds after a warm-up:
//   through the out-of-process root (WQSessionDataRoot64.exe): WriteStringList of 10 values (one
//     StoreData, one statement on PostgreSQL) and GetStringList of a 10-value key (SQLite: a hit
//     in the server's cache; PostgreSQL: a read of the database, nothing being cached);
//   the SQL storage in process: StoreData of 10 values and ReadData of them (the engines alone);
//   the database storage's asynchronous writes drained to the root;
//   read-after-write across two root servers on one database: a write through the server in
//     another process, then a read of it through a root in this process (a second server);
//   on PostgreSQL, what never caching costs: GetStringList through a cached layer over the
//     storage (which would serve stale values) against the uncached layer that the root uses.
#include "engines_bench.h"

#include "benchclock.h"
#include "benchresults.h"
#include "rawodbc.h"
#include "rootcall_bench.h"
#include "xcomtypes.h"
#include "xodbcconnection.h"
#include "xsessiondataioex.h"
#include "xsessiondatastoragesql.h"
#include "xsqlconnect.h"
#include "xuncachedioex.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace
{
const int kRounds = 7;
const int kCalls = 200;
const wchar_t kSchema[] = L"sdm_bench";

// Microseconds per call of call in each round of kCalls calls, after a warm-up round.
std::vector<double> PerCallUs(const std::function<bool(int)>& call, size_t& failures)
{
    std::vector<double> rounds;
    const int calls = BenchResults::Instance().Quick() ? kCalls / 4 : kCalls;
    for (int round = -1; round < BenchResults::Instance().Rounds(kRounds); ++round)
    {
        const double start = NowNs();
        for (int i = 0; i < calls; ++i)
            failures += call(round * kCalls + i) ? 0 : 1;
        if (round >= 0)
            rounds.push_back((NowNs() - start) / calls / 1000);
    }
    return rounds;
}

// Ten records that own their strings.
struct TenValues
{
    TenValues()
    {
        for (int i = 0; i < 10; ++i)
        {
            names.emplace_back((L"value" + std::to_wstring(i)).c_str());
            texts.emplace_back((L"the text of value " + std::to_wstring(i)).c_str());
        }
        for (int i = 0; i < 10; ++i)
            records.push_back(tagSESSIONDATAVALUE{names[static_cast<size_t>(i)], texts[static_cast<size_t>(i)]});
    }
    std::vector<XWQComBSTR> names;
    std::vector<XWQComBSTR> texts;
    std::vector<tagSESSIONDATAVALUE> records;
};

bool ListOfTen(IWQ_SessionDataIO* io, BSTR key)
{
    XValueArray values;
    return io->GetStringList(key, values.CountAddress(), values.ItemsAddress()) == S_OK && values.Count() == 10;
}

struct EngineFigures
{
    std::vector<double> rootStoreUs, rootListUs, storeUs, readUs, readAfterWriteUs;
    DrainFigures drain;
    size_t stale = 0, failures = 0;
};

EngineFigures Measure(const std::wstring& connection)
{
    EngineFigures figures;
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateBenchRoot(connection);
    const XComPtr<IWQ_SessionDataIOEx> second = ActivateBenchRoot(connection, CLSCTX_INPROC_SERVER);
    if (!root || !second)
    {
        std::printf("warning: the root could not be opened on %ls\n", connection.substr(0, 40).c_str());
        return figures;
    }
    TenValues ten;
    const XWQComBSTR key(L"Bench/Ten");
    figures.rootStoreUs = PerCallUs(
        [&](int) { return root->WriteStringList(key, 10, ten.records.data()) == S_OK; }, figures.failures);
    figures.rootListUs = PerCallUs([&](int) { return ListOfTen(root.Get(), key); }, figures.failures);

    const XComPtr<IWQ_SessionDataStorageEx> storage = XSessionDataStorageSql::Create(XSqlConnect(connection));
    figures.storeUs = PerCallUs(
        [&](int) { return storage->StoreData(key, 10, ten.records.data()) == S_OK; }, figures.failures);
    figures.readUs = PerCallUs(
        [&](int) {
            XValueArray values;
            return storage->ReadData(key, values.CountAddress(), values.ItemsAddress()) == S_OK && values.Count() == 10;
        },
        figures.failures);

    figures.drain = MeasureDrain(root.Get(), L"Bench\\Drain");
    // A key of its own per write: a server that had read the key before would answer from its
    // cache on SQLite, which is for one server only.
    const XWQComBSTR name(L"n");
    figures.readAfterWriteUs = PerCallUs(
        [&](int i) {
            const XWQComBSTR fresh((L"Bench/ReadAfterWrite/K" + std::to_wstring(i + kCalls)).c_str());
            const XWQComBSTR value((L"written " + std::to_wstring(i)).c_str());
            if (root->WriteData(fresh, name, value) != S_OK)
                return false;
            BSTR read = nullptr;
            const bool ok = second->GetData(fresh, name, &read) == S_OK;
            figures.stale += ok && ::VarBstrCmp(read, value, LOCALE_USER_DEFAULT, 0) != VARCMP_EQ ? 1 : 0;
            ::SysFreeString(read);
            return ok;
        },
        figures.failures);
    return figures;
}

// GetStringList per call through a cached and through the uncached layer over one storage.
std::pair<double, double> CoherenceCost(const std::wstring& connection)
{
    const XComPtr<IWQ_SessionDataStorageEx> storage = XSessionDataStorageSql::Create(XSqlConnect(connection));
    XComPtr<IWQ_SessionDataIOEx> cached;
    XComObject<XSessionDataIOEx>::Create(IID_IWQ_SessionDataIOEx, reinterpret_cast<void**>(cached.ReleaseAndGetAddressOf()));
    cached->SetStorage(storage.Get());
    const XComPtr<IWQ_SessionDataIOEx> uncached = XUncachedIOEx::Create(storage.Get());
    TenValues ten;
    const XWQComBSTR key(L"Bench/Coherence");
    uncached->WriteStringList(key, 10, ten.records.data());
    size_t failures = 0;
    const double cachedUs = BenchMedian(PerCallUs([&](int) { return ListOfTen(cached.Get(), key); }, failures));
    const double uncachedUs = BenchMedian(PerCallUs([&](int) { return ListOfTen(uncached.Get(), key); }, failures));
    return {cachedUs, uncachedUs};
}

std::wstring SqliteConnection()
{
    wchar_t folder[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, folder);
    const std::wstring path = std::wstring(folder) + L"wqsdm-bench-engines.db";
    for (const wchar_t* suffix : {L"", L"-wal", L"-shm"})
        ::DeleteFileW((path + suffix).c_str());
    return L"sqlite:" + path;
}

// The PostgreSQL database of the benchmark, in a schema of its own made empty; "" without one.
std::wstring PostgresConnection()
{
    const char* text = std::getenv("WQ_BENCH_PG");
    if (!text || !*text)
        text = std::getenv("WQ_TEST_PG");
    if (!text || !*text)
        return std::wstring();
    const std::wstring odbc(text, text + std::strlen(text));
    try
    {
        XOdbcConnection admin(odbc);
        admin.Execute("DROP SCHEMA IF EXISTS sdm_bench CASCADE");
        admin.Execute("CREATE SCHEMA sdm_bench");
    }
    catch (...)
    {
        std::printf("warning: the PostgreSQL database cannot be prepared\n");
        return std::wstring();
    }
    return L"odbc:" + odbc + L"ConnSettings=SET search_path TO " + kSchema + L";";
}

// A figure on both engines: PostgreSQL against SQLite, measured in the same run.
void Row(const char* id, const char* what, const std::vector<double>& sqlite, const std::vector<double>& postgres,
         const char* unit, double target = 0)
{
    BenchResults::Instance().AddRatio("engines", id, what, unit, postgres, "the same on SQLite", sqlite,
                                      nlohmann::json::object(), target);
    std::printf("  %-44s %10.1f %10.1f %-6s %6.2f %s\n", what, BenchMedian(sqlite), BenchMedian(postgres), unit,
                BenchMedian(sqlite) > 0 ? BenchMedian(postgres) / BenchMedian(sqlite) : 0, target > 0 ? "(target <= 2)" : "");
}
// The SQL storage on PostgreSQL in process against its statements made through ODBC directly.
void AgainstRawOdbc(const std::wstring& connection)
{
    RawOdbc raw(connection.substr(5));  // without "odbc:"
    if (!raw.Connected())
    {
        std::printf("warning: no raw ODBC connection for the floor\n");
        return;
    }
    const XComPtr<IWQ_SessionDataStorageEx> storage = XSessionDataStorageSql::Create(XSqlConnect(connection));
    TenValues ten;
    std::vector<std::pair<std::wstring, std::wstring>> pairs;
    for (size_t i = 0; i < ten.records.size(); ++i)
        pairs.emplace_back(ten.names[i].c_str(), ten.texts[i].c_str());
    const XWQComBSTR key(L"Bench/Raw/Ten");
    size_t failures = 0;
    const int rounds = BenchResults::Instance().Rounds(kRounds);
    const size_t calls = BenchResults::Instance().Quick() ? kCalls / 4 : kCalls;
    const auto perCall = [calls](auto body) { return BenchUsPerCallRound(calls, body); };
    const BenchPair store = BenchAlternate(
        rounds, perCall([&] { failures += storage->StoreData(key, 10, ten.records.data()) != S_OK; }),
        perCall([&] { failures += !raw.Store(pairs); }));
    std::vector<std::pair<std::wstring, std::wstring>> read;
    const BenchPair list = BenchAlternate(
        rounds,
        perCall([&] {
            XValueArray values;
            failures += storage->ReadData(key, values.CountAddress(), values.ItemsAddress()) != S_OK || values.Count() != 10;
        }),
        perCall([&] { failures += raw.Read(read) != 10; }));
    BenchResults& results = BenchResults::Instance();
    results.AddRatio("engines", "odbc/store", "SQL storage on PostgreSQL: StoreData, 10 values", "us", store,
                     "the key's levels and each value upserted through ODBC directly, a statement each (one transaction, prepared once)");
    results.AddRatio("engines", "odbc/read", "SQL storage on PostgreSQL: ReadData, 10 values", "us", list,
                     "the select of the key's values through ODBC directly (prepared once)");
    std::printf("  PostgreSQL storage StoreData, 10 values: %.1f us, through ODBC directly %.1f us (%.2f)\n",
                store.Component(), store.Floor(), store.Component() / store.Floor());
    std::printf("  PostgreSQL storage ReadData, 10 values:  %.1f us, through ODBC directly %.1f us (%.2f)\n",
                list.Component(), list.Floor(), list.Component() / list.Floor());
    if (failures)
        std::printf("warning: %zu calls failed\n", failures);
}
} // namespace

void RunEngineBenchmarks()
{
    std::printf("\nthe storage root on SQLite and on PostgreSQL (median of %d rounds of %d calls)\n",
                BenchResults::Instance().Rounds(kRounds), kCalls);
    const std::wstring postgres = PostgresConnection();
    if (postgres.empty())
    {
        std::printf("  skipped: no PostgreSQL database (set WQ_BENCH_PG or WQ_TEST_PG to an ODBC connection text)\n");
        return;
    }
    const EngineFigures lite = Measure(SqliteConnection());
    const EngineFigures pg = Measure(postgres);
    std::printf("  %-44s %10s %10s %-6s %6s\n", "", "SQLite", "PostgreSQL", "", "PG/SQLite");
    Row("root/write", "root: WriteStringList, 10 values", lite.rootStoreUs, pg.rootStoreUs, "us", 2);
    Row("root/list", "root: GetStringList, 10 values", lite.rootListUs, pg.rootListUs, "us", 2);
    Row("storage/store", "storage in process: StoreData, 10 values", lite.storeUs, pg.storeUs, "us");
    Row("storage/read", "storage in process: ReadData, 10 values", lite.readUs, pg.readUs, "us");
    Row("drain/flush", "async: flush of 1,000 piped writes", lite.drain.flushMs, pg.drain.flushMs, "ms");
    Row("drain/rate", "async: drain rate", lite.drain.rates, pg.drain.rates, "1/s");
    Row("read-after-write", "write on server A, read on server B", lite.readAfterWriteUs, pg.readAfterWriteUs, "us");
    std::printf("  stale reads on server B: SQLite %zu, PostgreSQL %zu; failed calls: %zu, %zu\n", lite.stale, pg.stale,
                lite.failures + lite.drain.failures, pg.failures + pg.drain.failures);
    AgainstRawOdbc(postgres);
    const std::pair<double, double> cost = CoherenceCost(postgres);
    std::printf("  no cache on PostgreSQL: GetStringList through a cached layer %.1f us, uncached %.1f us (%.1fx):\n"
                "  the price of reading another machine's write at once\n",
                cost.first, cost.second, cost.first > 0 ? cost.second / cost.first : 0);
}
