#include "XThreadedTask.h"

#include "xsdmerror.h"

namespace
{
const char kUnit[] = "XThreadedTask";
}

namespace XThreadedTaskReport
{
void Fail(unsigned long line, const XWQComBSTR& function, HRESULT hr, const wchar_t* message)
{
    XSdmThrow(XSdmLocation(kUnit, line, function), hr, message);
}

void FailSystem(unsigned long line, const XWQComBSTR& function, DWORD error, const wchar_t* message)
{
    XSdmThrow(XSdmLocation(kUnit, line, function), error ? HRESULT_FROM_WIN32(error) : E_FAIL, message,
              XWQEXCEP::EXCEP_SYSTEM);
}

namespace
{
const XWQComBSTR& ExecuteName()
{
    return XSDM_FUNCTION_NAME(L"XThreadedTask::_Execute");
}
} // namespace

unsigned long ResultOfEscaped() noexcept
{
    try
    {
        throw;
    }
    catch (const XWrappedWQException& exception)
    {
        try
        {
            XWQError::WriteErrorToLogBook(exception, true, 0);
        }
        catch (...)
        {
        }
        return static_cast<unsigned long>(exception.HasException() ? exception.Result() : E_UNEXPECTED);
    }
    catch (const std::exception& exception)
    {
        try
        {
            XWQError::WriteErrorToLogBook(XSdmLocation(kUnit, __LINE__, ExecuteName()), exception, XWQEXCEP::SEV_ERROR,
                                          XWQComBSTR());
        }
        catch (...)
        {
        }
        return static_cast<unsigned long>(XWQError::ResultOf(exception));
    }
    catch (...)
    {
        try
        {
            XWQError::WriteUnknownErrorToLogBook(XSdmLocation(kUnit, __LINE__, ExecuteName()), XWQComBSTR());
        }
        catch (...)
        {
        }
        return static_cast<unsigned long>(E_UNEXPECTED);
    }
}

void LogStartError(const XWrappedWQException& error) noexcept
{
    try
    {
        XWQError::WriteErrorToLogBook(error, true, 0);
    }
    catch (...)
    {
    }
}
} // namespace XThreadedTaskReport
