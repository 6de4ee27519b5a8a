// The SQL storage (XSessionDataStorageSql over SQLite) against its floor, side by side in one
// run, each on a database file of its own with the same settings (WAL, synchronous=NORMAL):
//   StoreData of a 1- and a 10-value list under a key of three levels, against the storage's own
//     statements made directly with the SQLite C API (prepared once, texts bound as UTF-16) in
//     one transaction: BEGIN IMMEDIATE, the key and the two keys above it, the values, COMMIT;
//   ReadData of a 10-value key, against the raw prepared select of the key's values, each row's
//     name and value copied out.
// Timing: QueryPerformanceCounter, a warm-up round, the median of several rounds; the storage
// and the floor alternate round by round, so drift of the shared machine hits both alike.
#include "sqlstorage_bench.h"

#include "XWQComBSTR.h"
#include "benchclock.h"
#include "benchresults.h"
#include "xcomtypes.h"
#include "xsessiondatastoragesql.h"
#include "xsqlconnect.h"
#include "xsqlstatements.h"

#include <sqlite3.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace
{
const int kRounds = 9;
const int kCallsPerRound = 2000;
const wchar_t kKey[] = L"Bench/Session/Window";

std::wstring TempFile(const wchar_t* name)
{
    wchar_t folder[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, folder);
    const std::wstring path = std::wstring(folder) + L"wqsdm-bench-" + name + L".db";
    for (const wchar_t* suffix : {L"", L"-wal", L"-shm"})
        ::DeleteFileW((path + suffix).c_str());
    return path;
}

struct Records
{
    std::vector<XWQComBSTR> names;
    std::vector<XWQComBSTR> values;
    std::vector<tagSESSIONDATAVALUE> records;
    explicit Records(int count)
    {
        for (int i = 0; i < count; ++i)
        {
            names.emplace_back((L"value" + std::to_wstring(i)).c_str());
            values.emplace_back((L"the text of value " + std::to_wstring(i)).c_str());
        }
        for (int i = 0; i < count; ++i)
            records.push_back(tagSESSIONDATAVALUE{names[i], values[i]});
    }
};

// The storage's statements made directly: a connection with the storage's settings.
class RawStore
{
public:
    explicit RawStore(const std::wstring& path)
    {
        XSqlConnect(L"sqlite:" + path);  // the schema, made as the storage makes it
        sqlite3_open16(path.c_str(), &m_db);
        sqlite3_exec(m_db, "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;", nullptr, nullptr, nullptr);
        m_begin = Prepare("BEGIN IMMEDIATE");
        m_commit = Prepare("COMMIT");
        m_insertKey = Prepare(XSqlStatements::kInsertKey);
        m_upsert = Prepare(XSqlStatements::kUpsertValue);
        m_select = Prepare(XSqlStatements::kSelectValues);
    }
    ~RawStore()
    {
        for (sqlite3_stmt* statement : {m_begin, m_commit, m_insertKey, m_upsert, m_select})
            sqlite3_finalize(statement);
        sqlite3_close(m_db);
    }
    RawStore(const RawStore&) = delete;
    RawStore& operator=(const RawStore&) = delete;

    // The key's three levels (norm, text, parent) and the values.
    void Store(const Records& records)
    {
        static const std::wstring levels[3][3] = {{L"bench", L"Bench", L""},
                                                  {L"bench/session", L"Bench/Session", L"bench"},
                                                  {L"bench/session/window", L"Bench/Session/Window", L"bench/session"}};
        Run(m_begin);
        for (const auto& level : levels)
        {
            Bind(m_insertKey, {L"", level[0], level[1], level[2]});
            Run(m_insertKey);
        }
        for (size_t i = 0; i < records.records.size(); ++i)
        {
            Bind(m_upsert, {L"", levels[2][0], records.records[i].bstrValueName, records.records[i].bstrValue});
            Run(m_upsert);
        }
        Run(m_commit);
    }

    size_t Read(std::vector<std::pair<std::wstring, std::wstring>>& pairs)
    {
        pairs.clear();
        Bind(m_select, {L"", L"bench/session/window"});
        while (sqlite3_step(m_select) == SQLITE_ROW)
            pairs.emplace_back(Column(0), Column(1));
        sqlite3_reset(m_select);
        return pairs.size();
    }

private:
    sqlite3_stmt* Prepare(const char* sql)
    {
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v3(m_db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
        return statement;
    }
    static void Bind(sqlite3_stmt* statement, std::initializer_list<std::wstring_view> texts)
    {
        int parameter = 1;
        for (std::wstring_view text : texts)
            sqlite3_bind_text16(statement, parameter++, text.data(), static_cast<int>(text.size() * sizeof(wchar_t)),
                                SQLITE_STATIC);
    }
    static void Run(sqlite3_stmt* statement)
    {
        sqlite3_step(statement);
        sqlite3_reset(statement);
    }
    std::wstring Column(int column) const
    {
        const void* text = sqlite3_column_text16(m_select, column);
        return std::wstring(static_cast<const wchar_t*>(text),
                            static_cast<size_t>(sqlite3_column_bytes16(m_select, column)) / sizeof(wchar_t));
    }

    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_begin = nullptr;
    sqlite3_stmt* m_commit = nullptr;
    sqlite3_stmt* m_insertKey = nullptr;
    sqlite3_stmt* m_upsert = nullptr;
    sqlite3_stmt* m_select = nullptr;
};

// Microseconds per call of storage and of raw, alternating round by round.
template <class Storage, class Raw>
BenchPair SideBySide(Storage storage, Raw raw)
{
    const size_t calls = BenchResults::Instance().Quick() ? kCallsPerRound / 10 : kCallsPerRound;
    return BenchAlternate(BenchResults::Instance().Rounds(kRounds), BenchUsPerCallRound(calls, storage),
                          BenchUsPerCallRound(calls, raw));
}

void Record(const char* id, const char* what, const BenchPair& figures, double target)
{
    BenchResults::Instance().AddRatio("sql", id, what, "us", figures,
                                      "the same statements through the SQLite C API, prepared once");
    std::printf("  %-36s %9.2f us %9.2f us %7.2f   (target <= %.1f)\n", what, figures.Component(), figures.Floor(),
                figures.Component() / figures.Floor(), target);
}
} // namespace

void RunSqlStorageBenchmarks()
{
    const XComPtr<IWQ_SessionDataStorageEx> storage =
        XSessionDataStorageSql::Create(XSqlConnect(L"sqlite:" + TempFile(L"storage")));
    RawStore raw(TempFile(L"raw"));
    const XWQComBSTR key(kKey);
    size_t failures = 0;
    std::printf("\nSQL storage over SQLite (WAL, synchronous=NORMAL) vs the same statements through the C API,\n"
                "median of %d rounds of %d calls, alternating\n",
                BenchResults::Instance().Rounds(kRounds), kCallsPerRound);
    std::printf("  %-36s %12s %12s %7s\n", "", "storage", "C API", "ratio");
    for (int count : {1, 10})
    {
        Records records(count);
        const auto figures = SideBySide(
            [&] {
                failures += storage->StoreData(key, static_cast<ULONG>(count), records.records.data()) != S_OK;
            },
            [&] { raw.Store(records); });
        Record(count == 1 ? "store/1" : "store/10", count == 1 ? "StoreData, 1-value list" : "StoreData, 10-value list",
               figures, 1.3);
    }
    std::vector<std::pair<std::wstring, std::wstring>> pairs;
    const auto read = SideBySide(
        [&] {
            XValueArray values;
            failures += storage->ReadData(key, values.CountAddress(), values.ItemsAddress()) != S_OK ||
                        values.Count() != 10;
        },
        [&] { failures += raw.Read(pairs) != 10; });
    Record("read/10", "ReadData, 10-value key", read, 1.5);
    if (failures)
        std::printf("warning: %zu calls failed\n", failures);
}
