// Connection texts: which database the SQL storage uses and how it opens it.
//   sqlite:<path of the file>[?synchronous=full|normal][&busy_timeout=<milliseconds>]
//   odbc:<ODBC connection text of a PostgreSQL database>, e.g.
//        odbc:Driver={PostgreSQL Unicode};Server=db.example;Port=5432;Database=sdm;Uid=sdm;Pwd=...
//        or odbc:DSN=<data source name>[;Uid=...;Pwd=...]
// An unknown scheme or option, a malformed ODBC text or one that names neither a driver nor a
// data source is refused with E_INVALIDARG; the engines raise their own failures.
#pragma once

#include "xsqlconnection.h"

#include <memory>
#include <string>

// A connection text taken apart.
struct XSqlParsedConnection
{
    // The database named, one text for every spelling of it (for a file: its full path,
    // lower-cased, as Windows compares paths).
    std::wstring database;
    // The connection text in its canonical form: the full path, every option with its value.
    std::wstring canonical;
    // The canonical form with any password masked: what messages and clients see.
    std::wstring shown;
};

XSqlParsedConnection XSqlParseConnection(const std::wstring& connection);

// Opens the database that a connection text names, with the storage's schema ready.
std::unique_ptr<XSqlConnection> XSqlConnect(const std::wstring& connection);
