// The floor of the SQL storage on PostgreSQL: the storage's own statements (the key's three
// levels and each value upserted in one transaction; the select of a key's values) made directly
// through ODBC, prepared once, texts bound as UTF-16, on a connection of its own.
#pragma once

#include <windows.h>

#include <sqltypes.h>

#include <string>
#include <utility>
#include <vector>

class RawOdbc
{
public:
    explicit RawOdbc(const std::wstring& connection);
    ~RawOdbc();
    RawOdbc(const RawOdbc&) = delete;
    RawOdbc& operator=(const RawOdbc&) = delete;

    bool Connected() const { return m_connected; }
    // The values under the benchmark's key (Bench/Raw/Ten), in one transaction.
    bool Store(const std::vector<std::pair<std::wstring, std::wstring>>& values);
    // The values of that key; their number.
    size_t Read(std::vector<std::pair<std::wstring, std::wstring>>& values);

private:
    SQLHSTMT Prepare(const char* sql);
    bool Run(SQLHSTMT statement, std::initializer_list<const wchar_t*> texts);

    SQLHENV m_env = nullptr;
    SQLHDBC m_dbc = nullptr;
    SQLHSTMT m_insertKey = nullptr;
    SQLHSTMT m_upsert = nullptr;
    SQLHSTMT m_select = nullptr;
    SQLLEN m_lengths[5] = {};
    bool m_connected = false;
};
