#include "xsqlschema.h"

#include "xsqlconnection.h"
#include "xsqldialect.h"
#include "xsqlerror.h"

#include <string>

void XSqlSchema::Prepare(XSqlConnection& connection)
{
    const XSqlDialect& dialect = connection.Dialect();
    XSqlTransaction transaction(connection);
    dialect.LockSchema(connection);
    const int version = dialect.SchemaVersion(connection);
    if (version == 0 && dialect.HasForeignTables(connection))
        XSqlError::Raise(L"XSqlSchema::Prepare", XSqlError::kForeign,
                         XWQComBSTR(L"the database holds other tables and is not a session data database"));
    if (version > kCurrentVersion)
        XSqlError::Raise(L"XSqlSchema::Prepare", XSqlError::kForeign,
                         XWQComBSTR((L"the database has schema version " + std::to_wstring(version) +
                                     L", newer than this program's " + std::to_wstring(kCurrentVersion))
                                        .c_str()));
    for (int step = version + 1; step <= kCurrentVersion; ++step)
    {
        for (const char* sql : dialect.Migration(step))
            connection.Execute(sql);
        dialect.SetSchemaVersion(connection, step);
    }
    transaction.Commit();
}
