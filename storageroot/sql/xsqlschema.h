// The storage's schema in a database: made when the database is new, brought up to the current
// version when it is older (every step in one transaction with its version), refused when the
// database holds someone else's tables or a newer schema.
#pragma once

class XSqlConnection;

namespace XSqlSchema
{
// The version the storage writes; older ones are migrated on open.
constexpr int kCurrentVersion = 2;

// Makes or migrates the schema; raises XSqlError::kForeign for a foreign or newer database.
void Prepare(XSqlConnection& connection);
} // namespace XSqlSchema
