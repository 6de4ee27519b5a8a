#include "xsqliteconnection.h"

#include "xsqldialect.h"
#include "xsqlerror.h"

#include <sqlite3.h>

#include <cstdio>
#include <vector>

namespace
{
HRESULT ResultOf(int code) noexcept
{
    switch (code & 0xFF)
    {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return XSqlError::kBusy;
    case SQLITE_FULL:
        return XSqlError::kFull;
    case SQLITE_READONLY:
    case SQLITE_PERM:
        return XSqlError::kReadOnly;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return XSqlError::kCorrupt;
    case SQLITE_CANTOPEN:
        return XSqlError::kCannotOpen;
    case SQLITE_TOOBIG:
        return XSqlError::kTooBig;
    case SQLITE_NOMEM:
        return E_OUTOFMEMORY;
    default:
        return E_FAIL;
    }
}

// The SQLite dialect: the schema version in PRAGMA user_version, tables without row ids.
class XSqliteDialect final : public XSqlDialect
{
public:
    const wchar_t* Engine() const override { return L"SQLite"; }
    bool Networked() const override { return false; }
    bool HoldsNul() const override { return true; }
    int SchemaVersion(XSqlConnection& connection) const override
    {
        XSqlUse version(connection.Statement("PRAGMA user_version"));
        return version->Step() ? std::stoi(std::wstring(version->ColumnText(0))) : 0;
    }
    void SetSchemaVersion(XSqlConnection& connection, int version) const override
    {
        char sql[48];
        std::snprintf(sql, sizeof sql, "PRAGMA user_version = %d", version);
        connection.Execute(sql);
    }
    bool HasForeignTables(XSqlConnection& connection) const override
    {
        XSqlUse tables(connection.Statement(
            "SELECT count(*) FROM sqlite_schema WHERE type = 'table' AND name NOT LIKE 'sdm!_%' ESCAPE '!'"));
        return tables->Step() && tables->ColumnText(0) != L"0";
    }
    std::vector<const char*> Migration(int version) const override
    {
        switch (version)
        {
        case 1:
            return {"CREATE TABLE sdm_keys (scope TEXT NOT NULL, key_norm TEXT NOT NULL, key_text TEXT NOT NULL, "
                    "parent_norm TEXT NOT NULL, PRIMARY KEY (scope, key_norm)) WITHOUT ROWID",
                    "CREATE INDEX sdm_keys_parent ON sdm_keys (scope, parent_norm)",
                    "CREATE TABLE sdm_values (scope TEXT NOT NULL, key_norm TEXT NOT NULL, name TEXT NOT NULL, "
                    "value TEXT NOT NULL, PRIMARY KEY (scope, key_norm, name)) WITHOUT ROWID"};
        case 2:
            return {"CREATE TABLE sdm_meta (name TEXT NOT NULL PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID",
                    "INSERT INTO sdm_meta (name, value) VALUES ('format', 'WQSessionDataMng session data')"};
        default:
            return {};
        }
    }
};
} // namespace

class XSqliteConnection::Statement_ final : public XSqlStatement
{
public:
    Statement_(XSqliteConnection& connection, sqlite3_stmt* statement) : m_connection(connection), m_stmt(statement) {}
    ~Statement_() override { ::sqlite3_finalize(m_stmt); }

    void BindText(int parameter, std::wstring_view text) override
    {
        // A null pointer would bind SQL NULL: the empty text is bound as such.
        const int code = ::sqlite3_bind_text16(m_stmt, parameter, text.data() ? text.data() : L"",
                                               static_cast<int>(text.size() * sizeof(wchar_t)), SQLITE_TRANSIENT);
        if (code != SQLITE_OK)
            m_connection.Fail(L"XSqlStatement::BindText", code);
    }
    bool Step() override
    {
        const int code = ::sqlite3_step(m_stmt);
        if (code == SQLITE_ROW)
            return true;
        if (code == SQLITE_DONE)
            return false;
        m_connection.Fail(L"XSqlStatement::Step", code);
    }
    std::wstring_view ColumnText(int column) override
    {
        const void* text = ::sqlite3_column_text16(m_stmt, column);
        const int bytes = ::sqlite3_column_bytes16(m_stmt, column);
        if (!text)
            return std::wstring_view();
        return std::wstring_view(static_cast<const wchar_t*>(text), static_cast<size_t>(bytes) / sizeof(wchar_t));
    }
    void Reset() override
    {
        ::sqlite3_reset(m_stmt);
        ::sqlite3_clear_bindings(m_stmt);
    }

private:
    XSqliteConnection& m_connection;
    sqlite3_stmt* m_stmt;
};

XSqliteConnection::XSqliteConnection(const std::wstring& path, const XSqliteOptions& options)
{
    const int opened = ::sqlite3_open16(path.c_str(), &m_db);
    if (opened != SQLITE_OK)
    {
        // sqlite3_open16 hands out a handle even when it fails, for its message.
        const XWQComBSTR message =
            XWQComBSTR(L"SQLite cannot open ") + XWQComBSTR(path) + L": " +
            XWQComBSTR(m_db ? static_cast<const wchar_t*>(::sqlite3_errmsg16(m_db)) : L"out of memory");
        ::sqlite3_close(m_db);
        m_db = nullptr;
        XSqlError::Raise(L"XSqliteConnection::Open", ResultOf(opened), message);
    }
    ::sqlite3_extended_result_codes(m_db, 1);
    ::sqlite3_busy_timeout(m_db, options.busyTimeoutMs);
    try
    {
        // WAL lets readers and a writer of several processes work at once; the setting is kept
        // in the file. NORMAL loses no committed data when the process ends, only at a power cut.
        Execute("PRAGMA journal_mode = WAL");
        Execute(options.synchronousFull ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
    }
    catch (...)
    {
        m_statements.clear();
        ::sqlite3_close(m_db);
        m_db = nullptr;
        throw;
    }
}

XSqliteConnection::~XSqliteConnection()
{
    m_statements.clear();
    ::sqlite3_close(m_db);
}

XSqlStatement& XSqliteConnection::Statement(const char* sql)
{
    const auto found = m_statements.find(sql);
    if (found != m_statements.end())
        return *found->second;
    sqlite3_stmt* prepared = nullptr;
    const int code = ::sqlite3_prepare_v3(m_db, sql, -1, SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
    if (code != SQLITE_OK)
        Fail(L"XSqliteConnection::Statement", code);
    auto statement = std::make_unique<Statement_>(*this, prepared);
    XSqlStatement& kept = *statement;
    m_statements.emplace(sql, std::move(statement));
    return kept;
}

void XSqliteConnection::Execute(const char* sql)
{
    // Settings and schema run once; they are not kept among the prepared statements.
    sqlite3_stmt* prepared = nullptr;
    int code = ::sqlite3_prepare_v2(m_db, sql, -1, &prepared, nullptr);
    if (code == SQLITE_OK)
    {
        while ((code = ::sqlite3_step(prepared)) == SQLITE_ROW)
        {
        }
    }
    ::sqlite3_finalize(prepared);
    if (code != SQLITE_OK && code != SQLITE_DONE)
        Fail(L"XSqliteConnection::Execute", code);
}

void XSqliteConnection::Begin()
{
    // IMMEDIATE takes the write lock at once: a busy file shows at the start, not half way.
    XSqlUse begin(Statement("BEGIN IMMEDIATE"));
    begin->Step();
}

void XSqliteConnection::Commit()
{
    XSqlUse commit(Statement("COMMIT"));
    commit->Step();
}

void XSqliteConnection::Rollback() noexcept
{
    if (::sqlite3_get_autocommit(m_db) == 0)
        ::sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
}

const XSqlDialect& XSqliteConnection::Dialect() const
{
    static const XSqliteDialect dialect;
    return dialect;
}

void XSqliteConnection::Fail(const wchar_t* function, int code) const
{
    XWQComBSTR message(L"SQLite: ");
    if (m_db)
        message.Append(static_cast<const wchar_t*>(::sqlite3_errmsg16(m_db)));
    else
        message.Append(XWQComBSTR(::sqlite3_errstr(code)));
    wchar_t detail[32];
    std::swprintf(detail, 32, L" (code %d)", code);
    message.Append(detail);
    XSqlError::Raise(function, ResultOf(code), message);
}
