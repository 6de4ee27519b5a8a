#include "rawodbc.h"

#include "xsqlstatements.h"

#include <sql.h>
#include <sqlext.h>

#include <utility>

namespace
{
bool Ok(SQLRETURN rc)
{
    return rc == SQL_SUCCESS || rc == SQL_SUCCESS_WITH_INFO;
}

// The key's three levels: normalised key, its text, its parent's normalised key.
const wchar_t* const kLevels[3][3] = {{L"bench", L"Bench", L""},
                                     {L"bench/raw", L"Bench/Raw", L"bench"},
                                     {L"bench/raw/ten", L"Bench/Raw/Ten", L"bench/raw"}};
} // namespace

RawOdbc::RawOdbc(const std::wstring& connection)
{
    ::SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &m_env);
    ::SQLSetEnvAttr(m_env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    ::SQLAllocHandle(SQL_HANDLE_DBC, m_env, &m_dbc);
    std::wstring text = connection;
    m_connected = Ok(::SQLDriverConnectW(m_dbc, nullptr, reinterpret_cast<SQLWCHAR*>(&text[0]), SQL_NTS, nullptr, 0,
                                         nullptr, SQL_DRIVER_NOPROMPT));
    if (!m_connected)
        return;
    ::SQLSetConnectAttrW(m_dbc, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_OFF), 0);
    m_insertKey = Prepare(XSqlStatements::kInsertKey);
    m_upsert = Prepare(XSqlStatements::kUpsertValue);
    m_select = Prepare(XSqlStatements::kSelectValues);
}

RawOdbc::~RawOdbc()
{
    for (SQLHSTMT statement : {m_insertKey, m_upsert, m_select})
        if (statement)
            ::SQLFreeHandle(SQL_HANDLE_STMT, statement);
    if (m_connected)
        ::SQLDisconnect(m_dbc);
    if (m_dbc)
        ::SQLFreeHandle(SQL_HANDLE_DBC, m_dbc);
    if (m_env)
        ::SQLFreeHandle(SQL_HANDLE_ENV, m_env);
}

SQLHSTMT RawOdbc::Prepare(const char* sql)
{
    SQLHSTMT statement = nullptr;
    ::SQLAllocHandle(SQL_HANDLE_STMT, m_dbc, &statement);
    std::wstring text(sql, sql + std::char_traits<char>::length(sql));
    if (!Ok(::SQLPrepareW(statement, reinterpret_cast<SQLWCHAR*>(&text[0]), SQL_NTS)))
        m_connected = false;
    return statement;
}

bool RawOdbc::Run(SQLHSTMT statement, std::initializer_list<const wchar_t*> texts)
{
    SQLUSMALLINT parameter = 1;
    for (const wchar_t* text : texts)
    {
        m_lengths[parameter] = SQL_NTS;
        ::SQLBindParameter(statement, parameter, SQL_PARAM_INPUT, SQL_C_WCHAR, SQL_WVARCHAR, 4000, 0,
                           const_cast<wchar_t*>(text), 0, &m_lengths[parameter]);
        ++parameter;
    }
    const bool ran = Ok(::SQLExecute(statement));
    ::SQLFreeStmt(statement, SQL_CLOSE);
    return ran;
}

bool RawOdbc::Store(const std::vector<std::pair<std::wstring, std::wstring>>& values)
{
    bool ok = m_connected;
    for (const auto& level : kLevels)
        ok = ok && Run(m_insertKey, {L"", level[0], level[1], level[2]});
    for (const auto& [name, value] : values)
        ok = ok && Run(m_upsert, {L"", kLevels[2][0], name.c_str(), value.c_str()});
    return Ok(::SQLEndTran(SQL_HANDLE_DBC, m_dbc, static_cast<SQLSMALLINT>(ok ? SQL_COMMIT : SQL_ROLLBACK))) && ok;
}

size_t RawOdbc::Read(std::vector<std::pair<std::wstring, std::wstring>>& values)
{
    values.clear();
    if (!m_connected)
        return 0;
    m_lengths[1] = m_lengths[2] = SQL_NTS;
    ::SQLBindParameter(m_select, 1, SQL_PARAM_INPUT, SQL_C_WCHAR, SQL_WVARCHAR, 4000, 0, const_cast<wchar_t*>(L""), 0,
                       &m_lengths[1]);
    ::SQLBindParameter(m_select, 2, SQL_PARAM_INPUT, SQL_C_WCHAR, SQL_WVARCHAR, 4000, 0,
                       const_cast<wchar_t*>(kLevels[2][0]), 0, &m_lengths[2]);
    if (Ok(::SQLExecute(m_select)))
    {
        wchar_t name[256];
        wchar_t value[1024];
        SQLLEN nameLength = 0;
        SQLLEN valueLength = 0;
        while (Ok(::SQLFetch(m_select)))
        {
            ::SQLGetData(m_select, 1, SQL_C_WCHAR, name, sizeof name, &nameLength);
            ::SQLGetData(m_select, 2, SQL_C_WCHAR, value, sizeof value, &valueLength);
            values.emplace_back(name, value);
        }
    }
    ::SQLFreeStmt(m_select, SQL_CLOSE);
    return values.size();
}
