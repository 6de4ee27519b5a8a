// The PostgreSQL dialect (through ODBC): the schema version in a table of its own, keys and names
// in the "C" collation (ordinal order, so key ranges use the index whatever the database's
// locale), a schema lock so that two servers make a new database's schema once, and a list
// written by one statement over arrays: a single round trip to the server per list.
#pragma once

#include "xsqldialect.h"

class XPostgresDialect final : public XSqlDialect
{
public:
    const wchar_t* Engine() const override { return L"PostgreSQL"; }
    bool Networked() const override { return true; }
    bool HoldsNul() const override { return false; }
    void LockSchema(XSqlConnection& connection) const override;
    int SchemaVersion(XSqlConnection& connection) const override;
    void SetSchemaVersion(XSqlConnection& connection, int version) const override;
    bool HasForeignTables(XSqlConnection& connection) const override;
    std::vector<const char*> Migration(int version) const override;
    void WriteList(XSqlConnection& connection, const XSqlRows& keys, const XSqlRows& values) const override;
};

// The texts as one PostgreSQL array literal ({"a","b\"c"}).
std::wstring XPostgresArray(const std::vector<std::wstring>& texts);
