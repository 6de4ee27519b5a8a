#include "xodbcconnection.h"

#include "xodbctext.h"
#include "xpostgresdialect.h"
#include "xsqlerror.h"

#include <windows.h>

#include <sql.h>
#include <sqlext.h>

#include <cwctype>
#include <vector>

namespace
{
std::wstring Wide(const char* text)
{
    return std::wstring(text, text + std::char_traits<char>::length(text));
}

bool Succeeded(SQLRETURN rc) noexcept
{
    return rc == SQL_SUCCESS || rc == SQL_SUCCESS_WITH_INFO;
}

bool Contains(const std::wstring& text, const wchar_t* part)
{
    return text.find(part) != std::wstring::npos;
}

// What the diagnostics of a failed call say, for a client and for the connection.
struct Diagnosis
{
    HRESULT hr = E_FAIL;
    bool lost = false;      // the connection to the server is gone
    bool runAgain = false;  // the server failed the work to break a deadlock: it may run again
    std::wstring message;
};

void Classify(const std::wstring& state, const std::wstring& text, Diagnosis& diagnosis)
{
    const std::wstring cls = state.substr(0, 2);
    if (cls == L"28" || Contains(text, L"password authentication failed") || Contains(text, L"no pg_hba.conf entry"))
        diagnosis.hr = XSqlError::kLogonFailed;
    else if (state == L"IM002" || state == L"IM003" || Contains(text, L"Can't open lib") ||
             Contains(text, L"Data source name not found"))
        diagnosis.hr = XSqlError::kNoDriver;
    else if (cls == L"08" && Contains(text, L"does not exist"))
        diagnosis.hr = XSqlError::kCannotOpen;  // the database named is not on the server
    else if (cls == L"08" || state == L"57P01" || state == L"57P02" || state == L"57P03" ||
             Contains(text, L"server closed the connection") || Contains(text, L"no connection to the server") ||
             Contains(text, L"could not send data to server") || Contains(text, L"could not receive data"))
    {
        diagnosis.hr = XSqlError::kUnreachable;
        diagnosis.lost = true;
    }
    else if (state == L"HYT00" || state == L"HYT01" || state == L"57014" || state == L"55P03")
        diagnosis.hr = XSqlError::kTimeout;
    else if (state == L"40001" || state == L"40P01")
    {
        diagnosis.hr = XSqlError::kBusy;
        diagnosis.runAgain = true;
    }
    else if (state == L"53100")
        diagnosis.hr = XSqlError::kFull;
    else if (state == L"53200")
        diagnosis.hr = E_OUTOFMEMORY;
    else if (state == L"25006")
        diagnosis.hr = XSqlError::kReadOnly;
    else if (state == L"54000")
        diagnosis.hr = XSqlError::kTooBig;
    else if (state == L"22021" || state == L"22P05")
        diagnosis.hr = E_INVALIDARG;
    else if (state == L"XX001" || state == L"XX002")
        diagnosis.hr = XSqlError::kCorrupt;
    else
        return;
}

Diagnosis Diagnose(SQLSMALLINT type, SQLHANDLE handle)
{
    Diagnosis diagnosis;
    bool classified = false;
    for (SQLSMALLINT record = 1; handle && record < 8; ++record)
    {
        SQLWCHAR state[6] = {};
        SQLINTEGER native = 0;
        std::vector<SQLWCHAR> text(2048);
        SQLSMALLINT length = 0;
        const SQLRETURN rc = ::SQLGetDiagRecW(type, handle, record, state, &native, text.data(),
                                              static_cast<SQLSMALLINT>(text.size()), &length);
        if (!Succeeded(rc))
            break;
        std::wstring line(reinterpret_cast<const wchar_t*>(text.data()));
        while (!line.empty() && std::iswspace(line.back()))
            line.pop_back();
        const std::wstring code(reinterpret_cast<const wchar_t*>(state));
        if (!diagnosis.message.empty())
            diagnosis.message += L"; ";
        diagnosis.message += L"[" + code + L"] " + line;
        if (!classified)
        {
            Diagnosis kind;
            Classify(code, line, kind);
            if (kind.hr != E_FAIL)
            {
                diagnosis.hr = kind.hr;
                diagnosis.lost = kind.lost;
                diagnosis.runAgain = kind.runAgain;
                classified = true;
            }
        }
    }
    if (diagnosis.message.empty())
        diagnosis.message = L"the ODBC driver gave no message";
    return diagnosis;
}
} // namespace

// An ODBC handle, freed with its owner.
class XOdbcConnection::Handle
{
public:
    Handle(SQLSMALLINT type, SQLHANDLE parent) : m_type(type)
    {
        if (!Succeeded(::SQLAllocHandle(type, parent, &m_handle)))
        {
            m_handle = SQL_NULL_HANDLE;
            XSqlError::Raise(L"XOdbcConnection::Handle", E_OUTOFMEMORY,
                             XWQComBSTR(L"ODBC cannot allocate a handle (is the ODBC driver manager installed?)"));
        }
    }
    ~Handle()
    {
        if (m_handle)
            ::SQLFreeHandle(m_type, m_handle);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    SQLHANDLE Get() const noexcept { return m_handle; }
    SQLSMALLINT Type() const noexcept { return m_type; }

private:
    SQLSMALLINT m_type;
    SQLHANDLE m_handle = SQL_NULL_HANDLE;
};

class XOdbcConnection::Statement_ final : public XSqlStatement
{
public:
    Statement_(XOdbcConnection& connection, const char* sql)
        : m_connection(connection), m_statement(SQL_HANDLE_STMT, connection.m_connection->Get())
    {
        std::wstring text = Wide(sql);
        if (!Succeeded(::SQLPrepareW(Get(), reinterpret_cast<SQLWCHAR*>(text.data()), SQL_NTS)))
            Fail(L"XSqlStatement::Prepare");
    }

    void BindText(int parameter, std::wstring_view text) override
    {
        if (text.find(L'\0') != std::wstring_view::npos)
            XSqlError::Raise(L"XSqlStatement::BindText", E_INVALIDARG,
                             XWQComBSTR(L"PostgreSQL text cannot hold the NUL character (U+0000)"));
        if (m_parameters.size() < static_cast<size_t>(parameter))
            m_parameters.resize(parameter);
        m_parameters[parameter - 1].assign(text.data() ? text.data() : L"", text.size());
    }
    bool Step() override
    {
        if (!m_executed)
        {
            Execute();
            if (m_columns == 0)
                return false;
        }
        if (m_columns == 0)
            return false;
        const SQLRETURN rc = ::SQLFetch(Get());
        if (rc == SQL_NO_DATA)
            return false;
        if (!Succeeded(rc))
            Fail(L"XSqlStatement::Step");
        m_row.clear();
        return true;
    }
    std::wstring_view ColumnText(int column) override
    {
        // The driver hands columns out in order: every column up to the one asked for is read.
        while (m_row.size() <= static_cast<size_t>(column))
            m_row.push_back(ReadColumn(static_cast<SQLUSMALLINT>(m_row.size() + 1)));
        return m_row[column];
    }
    void Reset() override
    {
        ::SQLFreeStmt(Get(), SQL_CLOSE);
        ::SQLFreeStmt(Get(), SQL_RESET_PARAMS);
        m_parameters.clear();
        m_lengths.clear();
        m_row.clear();
        m_executed = false;
        m_columns = 0;
    }

private:
    SQLHSTMT Get() const noexcept { return m_statement.Get(); }
    [[noreturn]] void Fail(const wchar_t* function) { m_connection.Fail(function, SQL_HANDLE_STMT, Get()); }

    void Execute()
    {
        m_lengths.assign(m_parameters.size(), 0);
        for (size_t i = 0; i < m_parameters.size(); ++i)
        {
            std::wstring& text = m_parameters[i];
            m_lengths[i] = static_cast<SQLLEN>(text.size() * sizeof(wchar_t));
            const SQLRETURN rc = ::SQLBindParameter(
                Get(), static_cast<SQLUSMALLINT>(i + 1), SQL_PARAM_INPUT, SQL_C_WCHAR, SQL_WLONGVARCHAR,
                text.empty() ? 1 : text.size(), 0, text.data(), m_lengths[i], &m_lengths[i]);
            if (!Succeeded(rc))
                Fail(L"XSqlStatement::BindText");
        }
        const SQLRETURN rc = ::SQLExecute(Get());
        if (!Succeeded(rc) && rc != SQL_NO_DATA)
            Fail(L"XSqlStatement::Step");
        m_executed = true;
        SQLSMALLINT columns = 0;
        if (rc != SQL_NO_DATA && !Succeeded(::SQLNumResultCols(Get(), &columns)))
            Fail(L"XSqlStatement::Step");
        m_columns = columns;
        // Room for every column at once: a text handed out stays where it is while the next
        // column is read (ColumnText gives views into the row).
        m_row.reserve(static_cast<size_t>(columns));
    }

    std::wstring ReadColumn(SQLUSMALLINT column)
    {
        std::wstring text;
        std::vector<wchar_t> piece(4096);
        for (;;)
        {
            SQLLEN available = 0;
            const SQLRETURN rc = ::SQLGetData(Get(), column, SQL_C_WCHAR, piece.data(),
                                              static_cast<SQLLEN>(piece.size() * sizeof(wchar_t)), &available);
            if (rc == SQL_NO_DATA || available == SQL_NULL_DATA)
                return text;
            if (!Succeeded(rc))
                Fail(L"XSqlStatement::ColumnText");
            if (rc == SQL_SUCCESS)
            {
                text.append(piece.data(), static_cast<size_t>(available) / sizeof(wchar_t));
                return text;
            }
            // Cut short: the piece is full (but for its terminator) and the rest follows.
            text.append(piece.data(), piece.size() - 1);
            if (available != SQL_NO_TOTAL)
            {
                const size_t rest = static_cast<size_t>(available) / sizeof(wchar_t) - (piece.size() - 1);
                text.reserve(text.size() + rest);
                piece.resize(rest + 1);
            }
        }
    }

    XOdbcConnection& m_connection;
    Handle m_statement;
    std::vector<std::wstring> m_parameters;
    std::vector<SQLLEN> m_lengths;
    std::vector<std::wstring> m_row;
    bool m_executed = false;
    SQLSMALLINT m_columns = 0;
};

XOdbcConnection::XOdbcConnection(std::wstring text) : m_text(std::move(text))
{
    m_environment = std::make_unique<Handle>(SQL_HANDLE_ENV, nullptr);
    ::SQLSetEnvAttr(m_environment->Get(), SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    Connect();
}

XOdbcConnection::~XOdbcConnection()
{
    Disconnect();
}

void XOdbcConnection::Connect()
{
    auto connection = std::make_unique<Handle>(SQL_HANDLE_DBC, m_environment->Get());
    ::SQLSetConnectAttrW(connection->Get(), SQL_ATTR_LOGIN_TIMEOUT,
                         reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(kLoginTimeoutSeconds)), 0);
    std::vector<XOdbcText::Attribute> attributes = XOdbcText::Parse(m_text);
    bool hasOptions = false;
    for (const XOdbcText::Attribute& attribute : attributes)
        hasOptions = hasOptions || XOdbcText::IsKey(attribute.key, L"pqopt");
    if (!hasOptions)
        attributes.push_back({L"pqopt", L"{connect_timeout=" + std::to_wstring(kLoginTimeoutSeconds) +
                                        L" keepalives_idle=15 keepalives_interval=5 keepalives_count=3 "
                                        L"tcp_user_timeout=" + std::to_wstring(kStatementTimeoutMs) + L"}"});
    std::wstring text = XOdbcText::Join(attributes);
    SQLWCHAR completed[1024];
    SQLSMALLINT length = 0;
    const SQLRETURN rc =
        ::SQLDriverConnectW(connection->Get(), nullptr, reinterpret_cast<SQLWCHAR*>(text.data()), SQL_NTS, completed,
                            static_cast<SQLSMALLINT>(sizeof completed / sizeof completed[0]), &length,
                            SQL_DRIVER_NOPROMPT);
    ::SecureZeroMemory(text.data(), text.size() * sizeof(wchar_t));
    ::SecureZeroMemory(completed, sizeof completed);
    if (!Succeeded(rc))
    {
        const Diagnosis diagnosis = Diagnose(SQL_HANDLE_DBC, connection->Get());
        XSqlError::Raise(L"XOdbcConnection::Connect", diagnosis.hr == E_FAIL ? XSqlError::kCannotOpen : diagnosis.hr,
                         XWQComBSTR((L"cannot connect to the database (" + XOdbcText::Redacted(m_text) +
                                     L"): " + diagnosis.message)
                                        .c_str()));
    }
    m_connection = std::move(connection);
    m_lost = false;
    SQLWCHAR engine[64] = {};
    SQLSMALLINT engineLength = 0;
    ::SQLGetInfoW(m_connection->Get(), SQL_DBMS_NAME, engine, sizeof engine, &engineLength);
    const std::wstring name(reinterpret_cast<const wchar_t*>(engine));
    if (_wcsicmp(name.c_str(), L"PostgreSQL") != 0)
    {
        Disconnect();
        XSqlError::Raise(L"XOdbcConnection::Connect", XSqlError::kForeign,
                         XWQComBSTR((L"the ODBC connection reaches \"" + name +
                                     L"\": the session data storage supports PostgreSQL through ODBC")
                                        .c_str()));
    }
    // Keep the server's, the role's or the connection's own statement time limit; else set one.
    bool unlimited = false;
    {
        XSqlUse show(Statement("SHOW statement_timeout"));
        unlimited = show->Step() && show->ColumnText(0) == L"0";
    }
    if (unlimited)
        Execute(("SET statement_timeout = " + std::to_string(kStatementTimeoutMs)).c_str());
}

void XOdbcConnection::Disconnect() noexcept
{
    m_statements.clear();
    if (m_connection)
    {
        ::SQLDisconnect(m_connection->Get());
        m_connection.reset();
    }
}

void XOdbcConnection::EnsureConnected()
{
    if (!m_lost && m_connection)
        return;
    Disconnect();
    Connect();
}

bool XOdbcConnection::Recover()
{
    if (m_runAgain)
    {
        m_runAgain = false;
        return !m_lost || (EnsureConnected(), true);
    }
    if (!m_lost)
        return false;
    EnsureConnected();
    return true;
}

XSqlStatement& XOdbcConnection::Statement(const char* sql)
{
    EnsureConnected();
    const auto found = m_statements.find(sql);
    if (found != m_statements.end())
        return *found->second;
    auto statement = std::make_unique<Statement_>(*this, sql);
    XSqlStatement& kept = *statement;
    m_statements.emplace(sql, std::move(statement));
    return kept;
}

void XOdbcConnection::Execute(const char* sql)
{
    EnsureConnected();
    Handle statement(SQL_HANDLE_STMT, m_connection->Get());
    std::wstring text = Wide(sql);
    const SQLRETURN rc = ::SQLExecDirectW(statement.Get(), reinterpret_cast<SQLWCHAR*>(text.data()), SQL_NTS);
    if (!Succeeded(rc) && rc != SQL_NO_DATA)
        Fail(L"XOdbcConnection::Execute", SQL_HANDLE_STMT, statement.Get());
}

void XOdbcConnection::Begin()
{
    EnsureConnected();
    if (!Succeeded(::SQLSetConnectAttrW(m_connection->Get(), SQL_ATTR_AUTOCOMMIT,
                                        reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_OFF), 0)))
        Fail(L"XOdbcConnection::Begin", SQL_HANDLE_DBC, m_connection->Get());
}

void XOdbcConnection::Commit()
{
    const SQLRETURN rc = ::SQLEndTran(SQL_HANDLE_DBC, m_connection->Get(), SQL_COMMIT);
    if (!Succeeded(rc))
        Fail(L"XOdbcConnection::Commit", SQL_HANDLE_DBC, m_connection->Get());
    ::SQLSetConnectAttrW(m_connection->Get(), SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON),
                         0);
}

void XOdbcConnection::Rollback() noexcept
{
    if (!m_connection)
        return;
    ::SQLEndTran(SQL_HANDLE_DBC, m_connection->Get(), SQL_ROLLBACK);
    ::SQLSetConnectAttrW(m_connection->Get(), SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON),
                         0);
}

const XSqlDialect& XOdbcConnection::Dialect() const
{
    static const XPostgresDialect dialect;
    return dialect;
}

void XOdbcConnection::Fail(const wchar_t* function, short type, void* handle)
{
    const Diagnosis diagnosis = Diagnose(type, handle);
    SQLUINTEGER dead = SQL_CD_FALSE;
    if (m_connection &&
        Succeeded(::SQLGetConnectAttrW(m_connection->Get(), SQL_ATTR_CONNECTION_DEAD, &dead, 0, nullptr)) &&
        dead == SQL_CD_TRUE)
        m_lost = true;
    m_lost = m_lost || diagnosis.lost;
    m_runAgain = diagnosis.runAgain;
    const HRESULT hr = m_lost && diagnosis.hr == E_FAIL ? XSqlError::kUnreachable : diagnosis.hr;
    XSqlError::Raise(function, hr, XWQComBSTR((L"PostgreSQL (ODBC): " + diagnosis.message).c_str()));
}
