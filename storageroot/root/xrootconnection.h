// The database a root object uses until its client opens another: the connection text in the
// registry value HKCU\Software\WQSessionDataMng\StorageRoot "Connection" (REG_SZ, or
// REG_EXPAND_SZ with environment variables expanded) when it is set, else the SQLite file
// %LOCALAPPDATA%\WQSessionDataMng\sessiondata.db, whose folder is created when missing.
//
// A password of an ODBC connection is never kept in that text: XSetDefaultRootConnection keeps
// it apart, in the value "Password", encrypted for the user with the Data Protection API (the
// product's string encryption), and XDefaultRootConnection puts it back into the text it hands
// to the database.
#pragma once

#include <string>

// The settings key under HKEY_CURRENT_USER; tests pass a key of their own.
inline constexpr wchar_t kRootSettingsKey[] = L"Software\\WQSessionDataMng\\StorageRoot";

// The configured default connection text, with its password.
std::wstring XDefaultRootConnection(const wchar_t* settingsKey = kRootSettingsKey);
// The same as a client may see it: in canonical form, any password masked.
std::wstring XShownDefaultRootConnection(const wchar_t* settingsKey = kRootSettingsKey);
// Makes connection the configured default (checked first: a text that cannot be parsed is
// refused with E_INVALIDARG and nothing changes); an empty text removes the setting, so the
// SQLite file is the default again.
void XSetDefaultRootConnection(const std::wstring& connection, const wchar_t* settingsKey = kRootSettingsKey);
