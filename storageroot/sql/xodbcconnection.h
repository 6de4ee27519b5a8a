// XOdbcConnection: the SQL storage's connection to a PostgreSQL database through ODBC (the
// PostgreSQL Unicode driver, named by the connection text or by a data source).
//
// Bounded waits: connecting gives up after kLoginTimeoutSeconds; a statement after the
// database's statement_timeout, set to kStatementTimeoutMs when the server, the role or the
// connection text sets none; TCP keepalives and a TCP user timeout (unless the text sets its own
// "pqopt") end a call whose server went away without closing the connection.
// A failure that loses the connection (the server stopped, restarted, or cannot be reached)
// marks it lost; Recover, and any later call, connect again. A deadlock that the server broke
// by failing this connection's statement lets Recover run the work again at once.
// Text goes in and out as UTF-16 (SQL_C_WCHAR) with explicit lengths; long values are read in
// as many pieces as they need. The password is never part of a message: messages show the
// connection text with it masked.
#pragma once

#include "xsqlconnection.h"

#include <map>
#include <memory>
#include <string>

class XOdbcConnection final : public XSqlConnection
{
public:
    static constexpr unsigned kLoginTimeoutSeconds = 10;
    static constexpr unsigned kStatementTimeoutMs = 30000;

    // Connects with text (an ODBC connection text); raises kUnreachable, kLogonFailed, kNoDriver,
    // kCannotOpen, kForeign (a database that is not PostgreSQL) with the driver's message.
    explicit XOdbcConnection(std::wstring text);
    ~XOdbcConnection() override;
    XOdbcConnection(const XOdbcConnection&) = delete;
    XOdbcConnection& operator=(const XOdbcConnection&) = delete;

    XSqlStatement& Statement(const char* sql) override;
    void Execute(const char* sql) override;
    void Begin() override;
    void Commit() override;
    void Rollback() noexcept override;
    const XSqlDialect& Dialect() const override;
    bool Recover() override;

    // Raises the HRESULT that fits the diagnostics of handle (of type), with their messages; marks
    // the connection lost or the work worth running again where they say so.
    [[noreturn]] void Fail(const wchar_t* function, short type, void* handle);

private:
    class Handle;
    class Statement_;
    void Connect();
    void Disconnect() noexcept;
    void EnsureConnected();

    std::wstring m_text;
    std::unique_ptr<Handle> m_environment;
    std::unique_ptr<Handle> m_connection;
    std::map<std::string, std::unique_ptr<Statement_>> m_statements;
    bool m_lost = false;
    bool m_runAgain = false;
};
