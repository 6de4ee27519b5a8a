// Files and the console as the tool uses them: whole files in and out (UTF-8), output to a
// console as UTF-16 (so any text shows) and to a pipe or file as UTF-8 bytes.
#pragma once

#include <string>

// The file's bytes; XCtlUsageError when it cannot be read.
std::string XCtlReadFile(const std::string& path);
// Writes text to stdout (out) or stderr (!out).
void XCtlWrite(const std::string& text, bool out = true);
// Whether stderr (or stdout) is an interactive console.
bool XCtlIsConsole(bool out);
