// Error reporting glue of the module: the module names, the per-method function names and the
// one boundary that turns whatever a method body throws into an HRESULT.
#pragma once

#include "XWQError.h"
#include <comdef.h>

// "WQSessionDataMng": the module name of every error location.
const XWQComBSTR& XSdmModuleName();
// "WQSessionDataMng": the module argument of the raw (location-free) error operations.
const XWQComBSTR& XSdmRawModuleName();

// A process-wide function-name string, made on first use (thread-safe static) and destroyed at
// module unload.
#define XSDM_FUNCTION_NAME(literal)                                                                                  \
    ([]() -> const XWQComBSTR& {                                                                                     \
        static const XWQComBSTR name(literal);                                                                       \
        return name;                                                                                                 \
    }())

// Location in this module for a report.
inline WQErrorLocation XSdmLocation(const char* unit, unsigned long line, const XWQComBSTR& function,
                                    const GUID& guid = GUID_NULL)
{
    return WQErrorLocation(unit, line, XSdmModuleName(), function, guid);
}

namespace xsdm_detail
{
HRESULT OnComError(const _com_error& error) noexcept;
HRESULT OnWQException(const char* unit, unsigned long line, const XWQComBSTR& function, const GUID& guid,
                      const XWrappedWQException& exception) noexcept;
HRESULT OnStdException(const char* unit, unsigned long line, const XWQComBSTR& function, const GUID& guid,
                       const std::exception& exception) noexcept;
HRESULT OnUnknownException(const char* unit, unsigned long line, const XWQComBSTR& function,
                           const GUID& guid) noexcept;
} // namespace xsdm_detail

// Runs a method body and converts what it throws:
//   _com_error -> its HRESULT, error info untouched, nothing logged;
//   XWrappedWQException -> XWQError::SetComError(location, exception);
//   std::exception -> XWQError::SetComError(exception, location, 8, "");
//   anything else -> XWQError::SetComUnknownError(location, "").
// unit/line/function/guid make the handlers' location.
template <class Body>
HRESULT XSdmBoundary(const char* unit, unsigned long line, const XWQComBSTR& function, const GUID& guid,
                     Body&& body) noexcept
{
    try
    {
        return body();
    }
    catch (const _com_error& error)
    {
        return xsdm_detail::OnComError(error);
    }
    catch (const XWrappedWQException& exception)
    {
        return xsdm_detail::OnWQException(unit, line, function, guid, exception);
    }
    catch (const std::exception& exception)
    {
        return xsdm_detail::OnStdException(unit, line, function, guid, exception);
    }
    catch (...)
    {
        return xsdm_detail::OnUnknownException(unit, line, function, guid);
    }
}

// Raises the module's own error as an XWQException.
[[noreturn]] void XSdmThrow(const WQErrorLocation& location, HRESULT hr, const XWQComBSTR& message,
                            XWQEXCEP::EXCEPTION_TYPE type = XWQEXCEP::EXCEP_APPLICATION);
