// Opens the database that a connection text names, with the storage's schema ready:
//   sqlite:<path of the file>[?synchronous=full][&busy_timeout=<milliseconds>]
// An unknown scheme is refused with E_INVALIDARG; the engines raise their own failures.
#pragma once

#include "xsqlconnection.h"

#include <memory>
#include <string>

std::unique_ptr<XSqlConnection> XSqlConnect(const std::wstring& connection);
