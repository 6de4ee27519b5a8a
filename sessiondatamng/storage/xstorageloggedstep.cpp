#include "xstorageloggedstep.h"

// Logging must not raise a second failure: whatever these helpers meet themselves is dropped.
namespace xstorage_detail
{
void LogComError(const char* unit, unsigned long line, const XWQComBSTR& function, const GUID& guid,
                 const _com_error& error) noexcept
{
    try
    {
        XWQError::WriteErrorToLogBook(XSdmLocation(unit, line, function, guid), error.Error(), XWQEXCEP::SEV_ERROR,
                                      XWQComBSTR(), true, 0);
    }
    catch (...)
    {
    }
}

void LogWQException(const XWrappedWQException& exception) noexcept
{
    try
    {
        XWQError::WriteErrorToLogBook(exception, true, 0);
    }
    catch (...)
    {
    }
}

void LogStdException(const char* unit, unsigned long line, const XWQComBSTR& function, const GUID& guid,
                     const std::exception& exception) noexcept
{
    try
    {
        XWQError::WriteErrorToLogBook(XSdmLocation(unit, line, function, guid), exception, XWQEXCEP::SEV_ERROR,
                                      XWQComBSTR());
    }
    catch (...)
    {
    }
}

void LogUnknownException(const char* unit, unsigned long line, const XWQComBSTR& function, const GUID& guid) noexcept
{
    try
    {
        XWQError::WriteUnknownErrorToLogBook(XSdmLocation(unit, line, function, guid), XWQComBSTR());
    }
    catch (...)
    {
    }
}
} // namespace xstorage_detail
