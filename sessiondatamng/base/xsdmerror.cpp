#include "xsdmerror.h"

const XWQComBSTR& XSdmModuleName()
{
    static const XWQComBSTR name(L"WQSessionDataMng");
    return name;
}

const XWQComBSTR& XSdmRawModuleName()
{
    static const XWQComBSTR name(L"WQSessionDataMng");
    return name;
}

namespace xsdm_detail
{
HRESULT OnComError(const _com_error& error) noexcept
{
    return error.Error();
}

// The handlers themselves allocate (location strings); if that fails, out of memory is the answer.
HRESULT OnWQException(const char* unit, unsigned long line, const XWQComBSTR& function, const GUID& guid,
                      const XWrappedWQException& exception) noexcept
{
    try
    {
        return XWQError::SetComError(XSdmLocation(unit, line, function, guid), exception);
    }
    catch (...)
    {
        return exception.HasException() ? exception.Result() : E_OUTOFMEMORY;
    }
}

HRESULT OnStdException(const char* unit, unsigned long line, const XWQComBSTR& function, const GUID& guid,
                       const std::exception& exception) noexcept
{
    try
    {
        return XWQError::SetComError(exception, XSdmLocation(unit, line, function, guid), XWQEXCEP::SEV_ERROR,
                                     XWQComBSTR());
    }
    catch (...)
    {
        return XWQError::ResultOf(exception);
    }
}

HRESULT OnUnknownException(const char* unit, unsigned long line, const XWQComBSTR& function,
                           const GUID& guid) noexcept
{
    try
    {
        return XWQError::SetComUnknownError(XSdmLocation(unit, line, function, guid), XWQComBSTR());
    }
    catch (...)
    {
        return E_UNEXPECTED;
    }
}
} // namespace xsdm_detail

void XSdmThrow(const WQErrorLocation& location, HRESULT hr, const XWQComBSTR& message, XWQEXCEP::EXCEPTION_TYPE type)
{
    XWQExceptionFactory::DoThrowException(type, location, hr, XWQEXCEP::SEV_ERROR, 0, message, XWQComBSTR(), 0);
}
