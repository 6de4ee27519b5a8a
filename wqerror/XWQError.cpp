#include "XWQError.h"
#include "XWQLogBook.h"

#include <cstdio>
#include <new>

namespace
{
constexpr XWQEXCEP::ERROR_SEVERITY kDefaultSeverity = XWQEXCEP::SEV_ERROR;

XWQComBSTR Join(const XWQComBSTR& message, const XWQComBSTR& detail)
{
    if (detail.IsEmpty())
        return message;
    if (message.IsEmpty())
        return detail;
    return message + L": " + detail;
}

XWQComBSTR Widen(const char* text)
{
    return XWQComBSTR(text ? text : "");
}

// Sets the calling thread's COM error info; failures to do so are ignored.
void SetErrorInfoText(const XWQComBSTR& source, const XWQComBSTR& description, const GUID& guid) noexcept
{
    ICreateErrorInfo* create = nullptr;
    if (FAILED(::CreateErrorInfo(&create)) || !create)
        return;
    create->SetGUID(guid);
    create->SetSource(const_cast<LPOLESTR>(source.c_str()));
    create->SetDescription(const_cast<LPOLESTR>(description.c_str()));
    IErrorInfo* info = nullptr;
    if (SUCCEEDED(create->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info))) && info)
    {
        ::SetErrorInfo(0, info);
        info->Release();
    }
    create->Release();
}

void Log(const XWQComBSTR& module, const XWQComBSTR& function, const std::string& unit, unsigned long line,
         HRESULT hr, int severity, const XWQComBSTR& text) noexcept
{
    try
    {
        XWQLogEntry entry;
        entry.severity = severity;
        entry.module = module.ToWString();
        entry.function = function.ToWString();
        entry.sourceUnit = unit;
        entry.line = line;
        entry.hr = hr;
        entry.message = text.ToWString();
        XWQLogBook::Write(entry);
    }
    catch (...)
    {
    }
}

void Log(const WQErrorLocation& location, HRESULT hr, int severity, const XWQComBSTR& text) noexcept
{
    Log(location.Module(), location.Function(), location.SourceUnit(), location.Line(), hr, severity, text);
}

// Error info and log entry for a location; returns hr.
HRESULT Report(const WQErrorLocation& location, HRESULT hr, int severity, const XWQComBSTR& text, bool log)
{
    SetErrorInfoText(location.Module(), text, location.Guid());
    if (log)
        Log(location, hr, severity, text);
    return hr;
}

XWQComBSTR StdText(const std::exception& exception, const XWQComBSTR& message)
{
    return Join(message, Widen(exception.what()));
}
} // namespace

HRESULT XWQError::ResultOf(const std::exception& exception) noexcept
{
    if (dynamic_cast<const std::bad_alloc*>(&exception))
        return E_OUTOFMEMORY;
    return E_FAIL;
}

HRESULT XWQError::CheckPtr(const WQErrorLocation& location, const void* pointer, const XWQComBSTR& message)
{
    if (pointer)
        return S_OK;
    const XWQComBSTR text = message.IsEmpty() ? XWQComBSTR(L"invalid NULL pointer") : message;
    return Report(location, E_POINTER, kDefaultSeverity, text, true);
}

void XWQError::CheckPtr_ThrowExcep(const WQErrorLocation& location, const void* pointer, const XWQComBSTR& message)
{
    if (pointer)
        return;
    const XWQComBSTR text = message.IsEmpty() ? XWQComBSTR(L"invalid NULL pointer") : message;
    XWQExceptionFactory::DoThrowException(XWQEXCEP::EXCEP_APPLICATION, location, E_POINTER, kDefaultSeverity, 0,
                                          text, XWQComBSTR(), 0);
}

HRESULT XWQError::SetComError(const WQErrorLocation& location, const XWrappedWQException& exception)
{
    if (!exception.HasException())
        return Report(location, E_UNEXPECTED, kDefaultSeverity, XWQComBSTR(L"empty exception"), true);
    const XWQException& e = *exception.Get();
    // The exception's own location says where it was raised; the handler's says where it was caught.
    SetErrorInfoText(e.Location().Module().IsEmpty() ? location.Module() : e.Location().Module(), e.FullText(),
                     location.Guid());
    Log(e.Location(), e.Result(), e.Severity(), e.FullText());
    return e.Result();
}

HRESULT XWQError::SetComError(const std::exception& exception, const WQErrorLocation& location,
                              XWQEXCEP::ERROR_SEVERITY severity, const XWQComBSTR& message)
{
    return Report(location, ResultOf(exception), severity, StdText(exception, message), true);
}

HRESULT XWQError::SetComError(const XWQComBSTR& module, const XWQComBSTR& function, unsigned long line,
                              const XWQComBSTR& message, HRESULT hr)
{
    return Report(WQErrorLocation("", line, module, function), hr, kDefaultSeverity, message, true);
}

HRESULT XWQError::SetComErrorNoLog(const XWrappedWQException& exception)
{
    if (!exception.HasException())
        return E_UNEXPECTED;
    const XWQException& e = *exception.Get();
    SetErrorInfoText(e.Location().Module(), e.FullText(), e.Location().Guid());
    return e.Result();
}

HRESULT XWQError::SetComUnknownError(const WQErrorLocation& location, const XWQComBSTR& message)
{
    return Report(location, E_UNEXPECTED, kDefaultSeverity, Join(XWQComBSTR(L"unknown exception"), message), true);
}

HRESULT XWQError::SetComSystemError(const WQErrorLocation& location, HRESULT hr, const XWQComBSTR& message,
                                    const XWQComBSTR& detail)
{
    return Report(location, hr, kDefaultSeverity, Join(message, detail), true);
}

HRESULT XWQError::SetComAppError(const WQErrorLocation& location, HRESULT hr, const XWQComBSTR& message,
                                 const XWQComBSTR& detail)
{
    return Report(location, hr, kDefaultSeverity, Join(message, detail), true);
}

namespace
{
// "system error <code>: <the system's text for it>".
XWQComBSTR SystemErrorText(DWORD errorCode)
{
    wchar_t* systemText = nullptr;
    ::FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                     nullptr, errorCode, 0, reinterpret_cast<LPWSTR>(&systemText), 0, nullptr);
    wchar_t head[64];
    std::swprintf(head, 64, L"system error %lu", static_cast<unsigned long>(errorCode));
    const XWQComBSTR text = Join(XWQComBSTR(head), XWQComBSTR(systemText));
    if (systemText)
        ::LocalFree(systemText);
    return text;
}

HRESULT ResultOfApiError(DWORD errorCode) noexcept
{
    return errorCode ? HRESULT_FROM_WIN32(errorCode) : E_FAIL;
}
} // namespace

HRESULT XWQError::HandleAPIError(const XWQComBSTR& module, const XWQComBSTR& function, unsigned long line,
                                 DWORD errorCode, bool setErrorInfo)
{
    const HRESULT hr = ResultOfApiError(errorCode);
    const XWQComBSTR text = SystemErrorText(errorCode);
    const WQErrorLocation location("", line, module, function);
    if (setErrorInfo)
        SetErrorInfoText(module, text, GUID_NULL);
    Log(location, hr, kDefaultSeverity, text);
    return hr;
}

HRESULT XWQError::HandleAPIError(const WQErrorLocation& location, DWORD errorCode, const XWQComBSTR& message,
                                 bool setErrorInfo)
{
    const HRESULT hr = ResultOfApiError(errorCode);
    const XWQComBSTR text = Join(message, SystemErrorText(errorCode));
    if (setErrorInfo)
        SetErrorInfoText(location.Module(), text, location.Guid());
    Log(location, hr, kDefaultSeverity, text);
    return hr;
}

long XWQError::HandleStandardError(const XWQComBSTR& module, const XWQComBSTR& function, unsigned long line,
                                   const XWQComBSTR& message, HRESULT hr, bool setErrorInfo)
{
    if (SUCCEEDED(hr))
        return 0;
    if (setErrorInfo)
        SetErrorInfoText(module, message, GUID_NULL);
    Log(module, function, std::string(), line, hr, kDefaultSeverity, message);
    return 1;
}

void XWQError::WriteErrorToLogBook(const WQErrorLocation& location, HRESULT hr, XWQEXCEP::ERROR_SEVERITY severity,
                                   const XWQComBSTR& message, bool, long)
{
    Log(location, hr, severity, message);
}

void XWQError::WriteErrorToLogBook(const XWrappedWQException& exception, bool withDetail, long)
{
    if (!exception.HasException())
        return;
    const XWQException& e = *exception.Get();
    Log(e.Location(), e.Result(), e.Severity(), withDetail ? e.FullText() : e.Message());
}

void XWQError::WriteErrorToLogBook(const WQErrorLocation& location, const std::exception& exception,
                                   XWQEXCEP::ERROR_SEVERITY severity, const XWQComBSTR& message)
{
    Log(location, ResultOf(exception), severity, StdText(exception, message));
}

void XWQError::WriteAPIErrorToLogBook(const XWQComBSTR& module, const XWQComBSTR& function, unsigned long line,
                                      const XWQComBSTR& message, long errorCode)
{
    wchar_t code[48];
    std::swprintf(code, 48, L" (error code %ld)", errorCode);
    Log(module, function, std::string(), line, errorCode ? HRESULT_FROM_WIN32(static_cast<DWORD>(errorCode)) : E_FAIL,
        kDefaultSeverity, message + code);
}

void XWQError::WriteAPIErrorToLogBook(const WQErrorLocation& location, XWQEXCEP::ERROR_SEVERITY severity,
                                      const XWQComBSTR& message, long errorCode)
{
    wchar_t code[48];
    std::swprintf(code, 48, L" (error code %ld)", errorCode);
    Log(location, errorCode ? HRESULT_FROM_WIN32(static_cast<DWORD>(errorCode)) : E_FAIL, severity, message + code);
}

void XWQError::WriteUnknownErrorToLogBook(const WQErrorLocation& location, const XWQComBSTR& message)
{
    Log(location, E_UNEXPECTED, kDefaultSeverity, Join(XWQComBSTR(L"unknown exception"), message));
}

void XWQError::WriteLineToErrorLogBook(const WQErrorLocation& location, XWQEXCEP::ERROR_SEVERITY severity,
                                       const XWQComBSTR& message, const XWQComBSTR& detail)
{
    Log(location, S_OK, severity, Join(message, detail));
}

XWrappedWQException XWQError::CreateExcep(const std::exception& exception, const WQErrorLocation& location,
                                          XWQEXCEP::ERROR_SEVERITY severity, const XWQComBSTR& message)
{
    return XWQExceptionFactory::Create(XWQEXCEP::EXCEP_STD, location, ResultOf(exception), severity, 0, message,
                                       Widen(exception.what()), 0);
}

XWrappedWQException XWQError::CreateUnknownExcep(const WQErrorLocation& location, const XWQComBSTR& message)
{
    return XWQExceptionFactory::Create(XWQEXCEP::EXCEP_UNKNOWN, location, E_UNEXPECTED, kDefaultSeverity, 0,
                                       Join(XWQComBSTR(L"unknown exception"), message), XWQComBSTR(), 0);
}

void XWQError::TranslateCException(const WQErrorLocation& location, unsigned int code,
                                   const EXCEPTION_POINTERS* pointers, bool log)
{
    const void* address = pointers && pointers->ExceptionRecord ? pointers->ExceptionRecord->ExceptionAddress : nullptr;
    wchar_t text[96];
    std::swprintf(text, 96, L"structured exception 0x%08X at address %p", code, address);
    const HRESULT hr = HRESULT_FROM_NT(code);
    XWrappedWQException exception = XWQExceptionFactory::Create(
        XWQEXCEP::EXCEP_STRUCTURED, location, hr, kDefaultSeverity, static_cast<long>(code), XWQComBSTR(text),
        XWQComBSTR(), 0);
    if (log)
        WriteErrorToLogBook(exception, true, 0);
    throw exception;
}
