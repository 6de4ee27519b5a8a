// A storage step whose exceptions must not turn into failures of the method (the creation of a
// registry key): what the step throws is written to the log book, the error info is left alone,
// and the step answers S_FALSE.
#pragma once

#include "xsdmerror.h"

#include <comdef.h>
#include <exception>

namespace xstorage_detail
{
void LogComError(const char* unit, unsigned long line, const XWQComBSTR& function, const GUID& guid,
                 const _com_error& error) noexcept;
void LogWQException(const XWrappedWQException& exception) noexcept;
void LogStdException(const char* unit, unsigned long line, const XWQComBSTR& function, const GUID& guid,
                     const std::exception& exception) noexcept;
void LogUnknownException(const char* unit, unsigned long line, const XWQComBSTR& function, const GUID& guid) noexcept;
} // namespace xstorage_detail

// Runs step and returns its answer; S_FALSE after logging when it throws.
template <class Step>
HRESULT XLoggedStep(const char* unit, unsigned long line, const XWQComBSTR& function, const GUID& guid,
                    Step&& step) noexcept
{
    try
    {
        return step();
    }
    catch (const _com_error& error)
    {
        xstorage_detail::LogComError(unit, line, function, guid, error);
    }
    catch (const XWrappedWQException& exception)
    {
        xstorage_detail::LogWQException(exception);
    }
    catch (const std::exception& exception)
    {
        xstorage_detail::LogStdException(unit, line, function, guid, exception);
    }
    catch (...)
    {
        xstorage_detail::LogUnknownException(unit, line, function, guid);
    }
    return S_FALSE;
}
