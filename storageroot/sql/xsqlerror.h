// The failures of the database engines, as HRESULTs with the engine's own message, raised as the
// module's exception (error info and a log line at the boundary of the COM method).
#pragma once

#include "XWQComBSTR.h"

#include <windows.h>

namespace XSqlError
{
// The kinds of failure a client can tell apart.
constexpr HRESULT kBusy = HRESULT_FROM_WIN32(ERROR_LOCK_VIOLATION);       // locked by another process
constexpr HRESULT kFull = HRESULT_FROM_WIN32(ERROR_DISK_FULL);            // no room left
constexpr HRESULT kReadOnly = HRESULT_FROM_WIN32(ERROR_WRITE_PROTECT);    // the database cannot be written
constexpr HRESULT kCorrupt = HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT);      // not a database, or damaged
constexpr HRESULT kCannotOpen = HRESULT_FROM_WIN32(ERROR_OPEN_FAILED);    // the database cannot be opened
constexpr HRESULT kForeign = HRESULT_FROM_WIN32(ERROR_BAD_FORMAT);        // a database of something else
constexpr HRESULT kTooBig = HRESULT_FROM_WIN32(ERROR_BUFFER_OVERFLOW);    // a value past the engine's limit
constexpr HRESULT kUnreachable = HRESULT_FROM_WIN32(ERROR_NETWORK_UNREACHABLE);  // the database server is down or cut off
constexpr HRESULT kTimeout = HRESULT_FROM_WIN32(ERROR_TIMEOUT);                // a statement ran past its time limit
constexpr HRESULT kLogonFailed = HRESULT_FROM_WIN32(ERROR_LOGON_FAILURE);      // wrong user name or password
constexpr HRESULT kNoDriver = HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);         // no such ODBC driver or data source

// Raises hr with message (the engine's text appended) from the SQL layer's location.
[[noreturn]] void Raise(const wchar_t* function, HRESULT hr, const XWQComBSTR& message);
} // namespace XSqlError
