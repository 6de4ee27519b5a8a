#include "xpostgresdialect.h"

#include "xsqlconnection.h"

#include <cstdio>

namespace
{
// Any number that no other program takes for its own advisory lock on the same database.
const char kLockSchema[] = "SELECT pg_advisory_xact_lock(7305318462907164)";
const char kHasVersionTable[] = "SELECT 1 WHERE to_regclass('sdm_schema') IS NOT NULL";
const char kVersion[] = "SELECT version FROM sdm_schema";
const char kForeignTables[] = "SELECT count(*) FROM information_schema.tables WHERE table_schema = current_schema() "
                              "AND table_name NOT LIKE 'sdm!_%' ESCAPE '!'";

// Both parts of a list in one statement, so one round trip: the keys (kept where they exist)
// and the values (replaced where they exist), every column an array.
const char kWriteList[] =
    "WITH k AS (INSERT INTO sdm_keys (scope, key_norm, key_text, parent_norm) "
    "SELECT * FROM unnest(?::text[], ?::text[], ?::text[], ?::text[]) "
    "ON CONFLICT (scope, key_norm) DO NOTHING) "
    "INSERT INTO sdm_values (scope, key_norm, name, value) "
    "SELECT * FROM unnest(?::text[], ?::text[], ?::text[], ?::text[]) "
    "ON CONFLICT (scope, key_norm, name) DO UPDATE SET value = excluded.value";
constexpr int kColumns = 4;

std::vector<std::wstring> Column(const XSqlRows& rows, size_t column)
{
    std::vector<std::wstring> texts;
    texts.reserve(rows.rows.size());
    for (const std::vector<std::wstring>& row : rows.rows)
        texts.push_back(row.at(column));
    return texts;
}
} // namespace

std::wstring XPostgresArray(const std::vector<std::wstring>& texts)
{
    size_t size = 2;
    for (const std::wstring& text : texts)
        size += text.size() + 3;
    std::wstring array;
    array.reserve(size);
    array += L'{';
    for (const std::wstring& text : texts)
    {
        if (array.size() > 1)
            array += L',';
        array += L'"';
        for (const wchar_t c : text)
        {
            if (c == L'"' || c == L'\\')
                array += L'\\';
            array += c;
        }
        array += L'"';
    }
    array += L'}';
    return array;
}

void XPostgresDialect::LockSchema(XSqlConnection& connection) const
{
    XSqlUse lock(connection.Statement(kLockSchema));
    lock->Step();
}

int XPostgresDialect::SchemaVersion(XSqlConnection& connection) const
{
    {
        XSqlUse exists(connection.Statement(kHasVersionTable));
        if (!exists->Step())
            return 0;
    }
    XSqlUse version(connection.Statement(kVersion));
    return version->Step() ? std::stoi(std::wstring(version->ColumnText(0))) : 0;
}

void XPostgresDialect::SetSchemaVersion(XSqlConnection& connection, int version) const
{
    char sql[64];
    std::snprintf(sql, sizeof sql, "UPDATE sdm_schema SET version = %d", version);
    connection.Execute(sql);
}

bool XPostgresDialect::HasForeignTables(XSqlConnection& connection) const
{
    XSqlUse tables(connection.Statement(kForeignTables));
    return tables->Step() && tables->ColumnText(0) != L"0";
}

std::vector<const char*> XPostgresDialect::Migration(int version) const
{
    switch (version)
    {
    case 1:
        return {"CREATE TABLE sdm_schema (version integer NOT NULL)",
                "INSERT INTO sdm_schema (version) VALUES (0)",
                "CREATE TABLE sdm_keys (scope text COLLATE \"C\" NOT NULL, key_norm text COLLATE \"C\" NOT NULL, "
                "key_text text NOT NULL, parent_norm text COLLATE \"C\" NOT NULL, PRIMARY KEY (scope, key_norm))",
                "CREATE INDEX sdm_keys_parent ON sdm_keys (scope, parent_norm)",
                "CREATE TABLE sdm_values (scope text COLLATE \"C\" NOT NULL, key_norm text COLLATE \"C\" NOT NULL, "
                "name text COLLATE \"C\" NOT NULL, value text NOT NULL, PRIMARY KEY (scope, key_norm, name))"};
    case 2:
        return {"CREATE TABLE sdm_meta (name text NOT NULL PRIMARY KEY, value text NOT NULL)",
                "INSERT INTO sdm_meta (name, value) VALUES ('format', 'WQSessionDataMng session data')"};
    default:
        return {};
    }
}

void XPostgresDialect::WriteList(XSqlConnection& connection, const XSqlRows& keys, const XSqlRows& values) const
{
    XSqlUse write(connection.Statement(kWriteList));
    int parameter = 1;
    for (const XSqlRows* rows : {&keys, &values})
        for (size_t column = 0; column < kColumns; ++column)
            write->BindText(parameter++, XPostgresArray(Column(*rows, column)));
    write->Step();
}
