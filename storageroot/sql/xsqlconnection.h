// The database engines behind the SQL storage, seen through one small interface: prepared
// statements with text parameters and text columns, transactions, and the engine's dialect
// (the SQL that differs between engines). Every failure of an engine is raised as the module's
// exception with an HRESULT that says what happened (XSqlError) and the engine's own message.
#pragma once

#include <memory>
#include <string>
#include <string_view>

class XSqlDialect;

// A prepared statement. Parameters and columns count from 1 and 0 respectively, as SQL does;
// a statement is reset (bindings cleared) before it is used again.
class XSqlStatement
{
public:
    virtual ~XSqlStatement() = default;
    virtual void BindText(int parameter, std::wstring_view text) = 0;
    // Steps to the next row: true while there is one.
    virtual bool Step() = 0;
    // The text of a column of the current row, valid until the next Step or Reset.
    virtual std::wstring_view ColumnText(int column) = 0;
    virtual void Reset() = 0;
};

class XSqlConnection
{
public:
    virtual ~XSqlConnection() = default;
    // The statement for sql, prepared on first use and kept by the connection; it comes reset.
    virtual XSqlStatement& Statement(const char* sql) = 0;
    // Runs sql that returns no rows (schema, settings).
    virtual void Execute(const char* sql) = 0;
    virtual void Begin() = 0;
    virtual void Commit() = 0;
    // Never throws: it runs where a failure is already on its way.
    virtual void Rollback() noexcept = 0;
    virtual const XSqlDialect& Dialect() const = 0;
    // After a failure: when the failure lost the connection to the database (a server that
    // stopped, restarted or was cut off) or chose this connection's work to give way (a
    // deadlock), connects again where needed (raising when it cannot) and returns true, so the
    // work that failed may run once more; false otherwise.
    virtual bool Recover() { return false; }
};

// A transaction for a scope: rolled back unless committed.
class XSqlTransaction
{
public:
    explicit XSqlTransaction(XSqlConnection& connection) : m_connection(connection) { m_connection.Begin(); }
    ~XSqlTransaction()
    {
        if (!m_done)
            m_connection.Rollback();
    }
    XSqlTransaction(const XSqlTransaction&) = delete;
    XSqlTransaction& operator=(const XSqlTransaction&) = delete;
    void Commit()
    {
        m_connection.Commit();
        m_done = true;
    }

private:
    XSqlConnection& m_connection;
    bool m_done = false;
};

// Resets a statement when a scope ends, however it ends.
class XSqlUse
{
public:
    explicit XSqlUse(XSqlStatement& statement) noexcept : m_statement(statement) {}
    ~XSqlUse() { m_statement.Reset(); }
    XSqlUse(const XSqlUse&) = delete;
    XSqlUse& operator=(const XSqlUse&) = delete;
    XSqlStatement* operator->() const noexcept { return &m_statement; }
    XSqlStatement& operator*() const noexcept { return m_statement; }

private:
    XSqlStatement& m_statement;
};
