// The log book: a UTF-8 text file, one line per entry, shared by every thread and process of
// the user. Location: the file named by the environment variable WQSDM_LOGBOOK, else
// %LOCALAPPDATA%\WQSessionDataMng\WQSessionDataMng.log. When the file grows past its bound
// (WQSDM_LOGBOOK_MAXBYTES, default 1 MiB) it is renamed to "<file>.1" (replacing the older
// rotated file) and a new file is started.
//
// Line format (tab separated):
//   2026-11-22T07:40:00.123Z  pid=<n>  tid=<n>  sev=<n>  <module>  <function>  <unit>:<line>  hr=0x<8 hex>  <message>
#pragma once

#include "XWQComBSTR.h"
#include <string>

struct XWQLogEntry
{
    int severity = 8;
    std::wstring module;
    std::wstring function;
    std::string sourceUnit;
    unsigned long line = 0;
    HRESULT hr = S_OK;
    std::wstring message;
};

class XWQLogBook
{
public:
    static void Write(const XWQLogEntry& entry) noexcept;
    // The file the next entry goes to.
    static std::wstring Path();
    // Formats an entry as written (without the line break); exposed for tests.
    static std::string FormatLine(const XWQLogEntry& entry, const SYSTEMTIME& utc, DWORD pid, DWORD tid);
};
