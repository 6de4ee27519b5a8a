// The statements of the SQL storage on its data, the same for every engine: text parameters
// only ('?'), key ranges instead of LIKE patterns (a key's subtree is every key from "key/" up
// to, not including, "key0": '0' follows '/' directly, so nothing else falls between), and the
// standard ON CONFLICT upserts.
#pragma once

namespace XSqlStatements
{
inline const char kInsertKey[] = "INSERT INTO sdm_keys (scope, key_norm, key_text, parent_norm) VALUES (?, ?, ?, ?) "
                                 "ON CONFLICT (scope, key_norm) DO NOTHING";
inline const char kUpsertValue[] = "INSERT INTO sdm_values (scope, key_norm, name, value) VALUES (?, ?, ?, ?) "
                                   "ON CONFLICT (scope, key_norm, name) DO UPDATE SET value = excluded.value";
inline const char kSelectValues[] = "SELECT name, value FROM sdm_values WHERE scope = ? AND key_norm = ?";
inline const char kKeyExists[] = "SELECT 1 FROM sdm_keys WHERE scope = ? AND key_norm = ?";
inline const char kChildren[] = "SELECT key_norm, key_text FROM sdm_keys WHERE scope = ? AND parent_norm = ?";
inline const char kKeysBelow[] =
    "SELECT key_norm, key_text FROM sdm_keys WHERE scope = ? AND key_norm > ? AND key_norm < ?";
inline const char kAllKeys[] = "SELECT key_norm, key_text FROM sdm_keys WHERE scope = ?";
inline const char kDeleteValuesOfKey[] = "DELETE FROM sdm_values WHERE scope = ? AND key_norm = ?";
inline const char kDeleteValuesBelow[] = "DELETE FROM sdm_values WHERE scope = ? AND key_norm > ? AND key_norm < ?";
inline const char kDeleteKey[] = "DELETE FROM sdm_keys WHERE scope = ? AND key_norm = ?";
inline const char kDeleteKeysBelow[] = "DELETE FROM sdm_keys WHERE scope = ? AND key_norm > ? AND key_norm < ?";
} // namespace XSqlStatements
