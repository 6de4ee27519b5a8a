// How sdmctl ends: exit codes as people expect them, and the failures that lead to them.
//   0  success
//   1  nothing was there (the component answered S_FALSE)
//   2  a usage error: the command line, a category, a type, a value, a file or its content that
//      cannot be used; refused before anything is written
//   3  a failure of the component or the system: the HRESULT, its system text and the COM
//      error info's description, on one line
#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

enum XCtlExit : int
{
    kExitOk = 0,
    kExitNothing = 1,
    kExitUsage = 2,
    kExitFailure = 3,
};

// Bad input, found before anything is written.
class XCtlUsageError : public std::runtime_error
{
public:
    explicit XCtlUsageError(const std::string& message) : std::runtime_error(message) {}
};

// A failed call: its HRESULT and the line that says what failed.
class XCtlFailure : public std::runtime_error
{
public:
    XCtlFailure(HRESULT hr, const std::string& what) : std::runtime_error(Describe(hr, what)), m_hr(hr) {}
    HRESULT Result() const noexcept { return m_hr; }
    // "<what>: error 0x80070057: <system text> (<error info>)"; the error info is the calling
    // thread's, taken (and cleared) here.
    static std::string Describe(HRESULT hr, const std::string& what);

private:
    HRESULT m_hr;
};

// Throws XCtlFailure for a failed hr; returns hr (S_OK or S_FALSE) otherwise.
HRESULT XCtlCheck(HRESULT hr, const std::string& what);

// UTF-8 and UTF-16, for the command line, files and the console.
std::string XCtlUtf8(const std::wstring& text);
std::wstring XCtlWide(const std::string& text);
