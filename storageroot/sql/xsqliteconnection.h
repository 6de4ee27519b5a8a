// XSqliteConnection: the SQL storage's connection to an SQLite database file.
//
// Opened in WAL journal mode with synchronous=NORMAL (or FULL on request) and a busy timeout,
// so that several processes can share one file: a writer that finds the file locked waits up to
// the timeout, then fails with XSqlError::kBusy. Text goes in and out as UTF-16 with explicit
// lengths, so a value keeps embedded NUL characters. Statements are prepared once and kept.
#pragma once

#include "xsqlconnection.h"

#include <map>
#include <memory>
#include <string>

struct sqlite3;

struct XSqliteOptions
{
    bool synchronousFull = false;
    int busyTimeoutMs = 5000;
};

class XSqliteConnection final : public XSqlConnection
{
public:
    // Opens (creating when missing) the database file at path; raises kCannotOpen and the like.
    XSqliteConnection(const std::wstring& path, const XSqliteOptions& options);
    ~XSqliteConnection() override;
    XSqliteConnection(const XSqliteConnection&) = delete;
    XSqliteConnection& operator=(const XSqliteConnection&) = delete;

    XSqlStatement& Statement(const char* sql) override;
    void Execute(const char* sql) override;
    void Begin() override;
    void Commit() override;
    void Rollback() noexcept override;
    const XSqlDialect& Dialect() const override;

    // Raises the HRESULT that fits the engine's result code, with its message.
    [[noreturn]] void Fail(const wchar_t* function, int code) const;
    sqlite3* Handle() const noexcept { return m_db; }

private:
    class Statement_;
    sqlite3* m_db = nullptr;
    std::map<std::string, std::unique_ptr<Statement_>> m_statements;
};
