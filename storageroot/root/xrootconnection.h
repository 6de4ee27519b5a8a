// The database a root object uses until its client opens another: the connection text in the
// registry value HKCU\Software\WQSessionDataMng\StorageRoot "Connection" (REG_SZ, or
// REG_EXPAND_SZ with environment variables expanded) when it is set, else the SQLite file
// %LOCALAPPDATA%\WQSessionDataMng\sessiondata.db, whose folder is created when missing.
#pragma once

#include <string>

// The configured default connection text.
std::wstring XDefaultRootConnection();
