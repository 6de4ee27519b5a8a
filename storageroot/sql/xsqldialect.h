// What the SQL of one engine says differently: the schema of each version and the steps between
// them, how the schema version is kept, how one list of values is written, and what the engine's
// text can hold. The other statements on the data are the same for every engine (XSqlStatements).
#pragma once

#include <string>
#include <vector>

class XSqlConnection;

// Rows to write: every row has the same number of texts, in the order of a statement's columns.
struct XSqlRows
{
    std::vector<std::vector<std::wstring>> rows;
};

class XSqlDialect
{
public:
    virtual ~XSqlDialect() = default;
    // The engine's name, for messages.
    virtual const wchar_t* Engine() const = 0;
    // Whether other processes on other machines write the same database: a networked engine's
    // data cannot be cached by a server, since nothing tells it of another server's writes.
    virtual bool Networked() const = 0;
    // Whether the engine's text can hold the NUL character (U+0000).
    virtual bool HoldsNul() const = 0;
    // Keeps other connections out of the schema until the transaction ends (two servers that
    // open a new database at once make its schema once). Nothing for an engine whose
    // transactions already exclude each other.
    virtual void LockSchema(XSqlConnection&) const {}
    // The version the schema has in the connected database (0: a database without one).
    virtual int SchemaVersion(XSqlConnection& connection) const = 0;
    virtual void SetSchemaVersion(XSqlConnection& connection, int version) const = 0;
    // Whether the database holds tables that are not the storage's (a foreign database).
    virtual bool HasForeignTables(XSqlConnection& connection) const = 0;
    // The statements that bring a schema of version - 1 to version (1: the first schema).
    virtual std::vector<const char*> Migration(int version) const = 0;
    // Writes the keys (scope, key_norm, key_text, parent_norm; kept when they exist) and the
    // values (scope, key_norm, name, value; replaced when they exist) of one list, all or none.
    // By default a transaction with one statement per row (XSqlStatements); an engine whose every
    // statement is a round trip over the network writes them in one.
    virtual void WriteList(XSqlConnection& connection, const XSqlRows& keys, const XSqlRows& values) const;
};
