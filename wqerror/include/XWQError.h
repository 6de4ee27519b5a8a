// Error reporting of the module: every operation turns a failure into an HRESULT, sets the
// calling thread's COM error info and writes the log book, as its name says.
//
// Failure HRESULTs chosen by this library:
//   CheckPtr on a null pointer ............ E_POINTER (0x80004003)
//   std::bad_alloc ........................ E_OUTOFMEMORY (0x8007000E)
//   any other std::exception .............. E_FAIL (0x80004005)
//   unknown exception ..................... E_UNEXPECTED (0x8000FFFF)
//   HandleAPIError(code) .................. HRESULT_FROM_WIN32(code), E_FAIL for code 0
//   structured exception (code) ........... HRESULT_FROM_NT(code)
// Error info: description = message (": detail" appended when there is one), source = the
// module name of the location (or the module argument), GUID = the location's GUID.
#pragma once

#include "XWQException.h"
#include <exception>

class XWQError
{
public:
    // Pointer checks.
    static HRESULT CheckPtr(const WQErrorLocation& location, const void* pointer, const XWQComBSTR& message);
    static void CheckPtr_ThrowExcep(const WQErrorLocation& location, const void* pointer, const XWQComBSTR& message);

    // Reports that return an HRESULT, set the COM error info and log.
    static HRESULT SetComError(const WQErrorLocation& location, const XWrappedWQException& exception);
    static HRESULT SetComError(const std::exception& exception, const WQErrorLocation& location,
                               XWQEXCEP::ERROR_SEVERITY severity, const XWQComBSTR& message);
    static HRESULT SetComError(const XWQComBSTR& module, const XWQComBSTR& function, unsigned long line,
                               const XWQComBSTR& message, HRESULT hr);
    static HRESULT SetComErrorNoLog(const XWrappedWQException& exception);
    static HRESULT SetComUnknownError(const WQErrorLocation& location, const XWQComBSTR& message);
    static HRESULT SetComSystemError(const WQErrorLocation& location, HRESULT hr, const XWQComBSTR& message,
                                     const XWQComBSTR& detail);
    static HRESULT SetComAppError(const WQErrorLocation& location, HRESULT hr, const XWQComBSTR& message,
                                  const XWQComBSTR& detail);
    static HRESULT HandleAPIError(const XWQComBSTR& module, const XWQComBSTR& function, unsigned long line,
                                  DWORD errorCode, bool setErrorInfo);
    // The same at a full location, with the caller's own message before the system's text.
    static HRESULT HandleAPIError(const WQErrorLocation& location, DWORD errorCode, const XWQComBSTR& message,
                                  bool setErrorInfo);
    // Non-zero when hr is a failure; then the failure is logged, and with setErrorInfo also set
    // as the thread's error info.
    static long HandleStandardError(const XWQComBSTR& module, const XWQComBSTR& function, unsigned long line,
                                    const XWQComBSTR& message, HRESULT hr, bool setErrorInfo);

    // Log-only reports.
    static void WriteErrorToLogBook(const WQErrorLocation& location, HRESULT hr, XWQEXCEP::ERROR_SEVERITY severity,
                                    const XWQComBSTR& message, bool withDetail, long number);
    static void WriteErrorToLogBook(const XWrappedWQException& exception, bool withDetail, long number);
    static void WriteErrorToLogBook(const WQErrorLocation& location, const std::exception& exception,
                                    XWQEXCEP::ERROR_SEVERITY severity, const XWQComBSTR& message);
    static void WriteAPIErrorToLogBook(const XWQComBSTR& module, const XWQComBSTR& function, unsigned long line,
                                       const XWQComBSTR& message, long errorCode);
    static void WriteAPIErrorToLogBook(const WQErrorLocation& location, XWQEXCEP::ERROR_SEVERITY severity,
                                       const XWQComBSTR& message, long errorCode);
    static void WriteUnknownErrorToLogBook(const WQErrorLocation& location, const XWQComBSTR& message);
    static void WriteLineToErrorLogBook(const WQErrorLocation& location, XWQEXCEP::ERROR_SEVERITY severity,
                                        const XWQComBSTR& message, const XWQComBSTR& detail);

    // Exception factories.
    static XWrappedWQException CreateExcep(const std::exception& exception, const WQErrorLocation& location,
                                           XWQEXCEP::ERROR_SEVERITY severity, const XWQComBSTR& message);
    static XWrappedWQException CreateUnknownExcep(const WQErrorLocation& location, const XWQComBSTR& message);

    // Turns a structured exception into a thrown XWrappedWQException (logged when log is true).
    [[noreturn]] static void TranslateCException(const WQErrorLocation& location, unsigned int code,
                                                 const EXCEPTION_POINTERS* pointers, bool log);

    // The HRESULT this library gives for a C++ standard exception.
    static HRESULT ResultOf(const std::exception& exception) noexcept;
};
