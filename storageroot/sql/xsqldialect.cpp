#include "xsqldialect.h"

#include "xsqlconnection.h"
#include "xsqlstatements.h"

namespace
{
void WriteRows(XSqlConnection& connection, const char* sql, const XSqlRows& rows)
{
    for (const std::vector<std::wstring>& row : rows.rows)
    {
        XSqlUse statement(connection.Statement(sql));
        int parameter = 1;
        for (const std::wstring& text : row)
            statement->BindText(parameter++, text);
        statement->Step();
    }
}
} // namespace

void XSqlDialect::WriteList(XSqlConnection& connection, const XSqlRows& keys, const XSqlRows& values) const
{
    XSqlTransaction transaction(connection);
    WriteRows(connection, XSqlStatements::kInsertKey, keys);
    WriteRows(connection, XSqlStatements::kUpsertValue, values);
    transaction.Commit();
}
