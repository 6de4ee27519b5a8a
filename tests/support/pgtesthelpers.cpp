#include "pgtesthelpers.h"

#include "storagetesthelpers.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <sql.h>
#include <sqlext.h>

#include <cstdio>
#include <cstdlib>

namespace
{
bool Succeeded(SQLRETURN rc)
{
    return rc == SQL_SUCCESS || rc == SQL_SUCCESS_WITH_INFO;
}

std::wstring WideOf(const std::string& text)
{
    if (text.empty())
        return std::wstring();
    const int size = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(size, L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), size);
    return wide;
}

std::string Diagnostics(SQLSMALLINT type, SQLHANDLE handle)
{
    SQLWCHAR state[6] = {};
    SQLINTEGER native = 0;
    SQLWCHAR text[1024] = {};
    SQLSMALLINT length = 0;
    if (!Succeeded(::SQLGetDiagRecW(type, handle, 1, state, &native, text, 1024, &length)))
        return "no diagnostics";
    return Utf8(reinterpret_cast<wchar_t*>(state)) + " " + Utf8(reinterpret_cast<wchar_t*>(text));
}

// A name of the running test that PostgreSQL takes unquoted: "t_" and a hash of the test's name.
std::string SchemaName()
{
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = info ? std::string(info->test_suite_name()) + "." + info->name() : "none";
    unsigned long long hash = 1469598103934665603ULL;
    for (const char c : name)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
    char text[32];
    std::snprintf(text, sizeof text, "t_%016llx", hash);
    return text;
}
} // namespace

std::wstring PgTestConnectionText()
{
    const char* text = std::getenv("WQ_TEST_PG");
    if (!text || !*text)
    {
        ADD_FAILURE() << "WQ_TEST_PG is not set: run the tests with scripts/test.sh, which starts a PostgreSQL "
                         "cluster for them";
        return std::wstring();
    }
    return WideOf(text);
}

RawOdbc::RawOdbc(const std::wstring& text)
{
    ::SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &m_environment);
    ::SQLSetEnvAttr(m_environment, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    ::SQLAllocHandle(SQL_HANDLE_DBC, m_environment, &m_connection);
    std::wstring connection = text;
    SQLSMALLINT length = 0;
    if (!Succeeded(::SQLDriverConnectW(m_connection, nullptr, reinterpret_cast<SQLWCHAR*>(connection.data()), SQL_NTS,
                                       nullptr, 0, &length, SQL_DRIVER_NOPROMPT)))
    {
        m_error = Diagnostics(SQL_HANDLE_DBC, m_connection);
        ::SQLFreeHandle(SQL_HANDLE_DBC, m_connection);
        m_connection = nullptr;
    }
}

RawOdbc::~RawOdbc()
{
    if (m_connection)
    {
        ::SQLDisconnect(m_connection);
        ::SQLFreeHandle(SQL_HANDLE_DBC, m_connection);
    }
    ::SQLFreeHandle(SQL_HANDLE_ENV, m_environment);
}

bool RawOdbc::Execute(const std::string& sql)
{
    if (!m_connection)
        return false;
    SQLHSTMT statement = nullptr;
    ::SQLAllocHandle(SQL_HANDLE_STMT, m_connection, &statement);
    std::wstring text = WideOf(sql);
    const SQLRETURN rc = ::SQLExecDirectW(statement, reinterpret_cast<SQLWCHAR*>(text.data()), SQL_NTS);
    const bool ok = Succeeded(rc) || rc == SQL_NO_DATA;
    m_error = ok ? std::string() : Diagnostics(SQL_HANDLE_STMT, statement);
    ::SQLFreeHandle(SQL_HANDLE_STMT, statement);
    return ok;
}

std::vector<std::string> RawOdbc::Rows(const std::string& sql)
{
    std::vector<std::string> rows;
    if (!m_connection)
        return rows;
    SQLHSTMT statement = nullptr;
    ::SQLAllocHandle(SQL_HANDLE_STMT, m_connection, &statement);
    std::wstring text = WideOf(sql);
    if (!Succeeded(::SQLExecDirectW(statement, reinterpret_cast<SQLWCHAR*>(text.data()), SQL_NTS)))
    {
        m_error = Diagnostics(SQL_HANDLE_STMT, statement);
        ::SQLFreeHandle(SQL_HANDLE_STMT, statement);
        return rows;
    }
    SQLSMALLINT columns = 0;
    ::SQLNumResultCols(statement, &columns);
    while (Succeeded(::SQLFetch(statement)))
    {
        std::string row;
        for (SQLUSMALLINT column = 1; column <= columns; ++column)
        {
            std::wstring value;
            bool isNull = false;
            for (;;)
            {
                wchar_t piece[1024];
                SQLLEN available = 0;
                const SQLRETURN rc = ::SQLGetData(statement, column, SQL_C_WCHAR, piece, sizeof piece, &available);
                if (!Succeeded(rc))
                    break;
                if (available == SQL_NULL_DATA)
                {
                    isNull = true;
                    break;
                }
                value += piece;
                if (rc == SQL_SUCCESS)
                    break;
            }
            row += (column > 1 ? "|" : "") + (isNull ? std::string("<null>") : Utf8(value));
        }
        rows.push_back(row);
    }
    ::SQLFreeHandle(SQL_HANDLE_STMT, statement);
    return rows;
}

PgTestSchema::PgTestSchema() : m_name(SchemaName())
{
    const std::wstring base = PgTestConnectionText();
    m_raw = std::make_unique<RawOdbc>(OdbcText());
    EXPECT_TRUE(m_raw->Connected()) << m_raw->Error();
    EXPECT_TRUE(m_raw->Execute("DROP SCHEMA IF EXISTS " + m_name + " CASCADE")) << m_raw->Error();
    EXPECT_TRUE(m_raw->Execute("CREATE SCHEMA " + m_name)) << m_raw->Error();
}

PgTestSchema::~PgTestSchema()
{
    m_raw->Execute("DROP SCHEMA IF EXISTS " + m_name + " CASCADE");
}

std::wstring PgTestSchema::OdbcText() const
{
    // The application name lets a test find the server processes of its own connections.
    return PgTestConnectionText() + L"ConnSettings={SET search_path TO " + WideOf(m_name) +
           L";SET application_name TO " + WideOf(m_name) + L"};";
}

int PgTestSchema::EndOtherConnections()
{
    const std::vector<std::string> ended =
        m_raw->Rows("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE application_name = '" + m_name +
                    "' AND pid <> pg_backend_pid()");
    return static_cast<int>(ended.size());
}
