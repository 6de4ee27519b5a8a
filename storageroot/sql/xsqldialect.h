// What the SQL of one engine says differently: the schema of each version and the steps between
// them, and how the schema version is kept. The statements on the data are the same for every
// engine (XSqlStatements).
#pragma once

#include <vector>

class XSqlConnection;

class XSqlDialect
{
public:
    virtual ~XSqlDialect() = default;
    // The version the schema has in the connected database (0: a database without one).
    virtual int SchemaVersion(XSqlConnection& connection) const = 0;
    virtual void SetSchemaVersion(XSqlConnection& connection, int version) const = 0;
    // Whether the database holds tables that are not the storage's (a foreign file).
    virtual bool HasForeignTables(XSqlConnection& connection) const = 0;
    // The statements that bring a schema of version - 1 to version (1: the first schema).
    virtual std::vector<const char*> Migration(int version) const = 0;
};
