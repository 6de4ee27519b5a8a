#include "XThreadedTask.h"

#include "xsdmreporter.h"

namespace
{
const XSdmReporter& Report()
{
    static const XSdmReporter report("XThreadedTask", GUID_NULL);
    return report;
}
} // namespace

namespace XThreadedTaskReport
{
void Fail(unsigned long line, const XWQComBSTR& function, HRESULT hr, const wchar_t* message)
{
    Report().Raise(line, function, hr, message);
}

void FailSystem(unsigned long line, const XWQComBSTR& function, DWORD error, const wchar_t* message)
{
    Report().RaiseSystem(line, function, error, message);
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
            XWQError::WriteErrorToLogBook(Report().Where(__LINE__, ExecuteName()), exception, XWQEXCEP::SEV_ERROR,
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
            XWQError::WriteUnknownErrorToLogBook(Report().Where(__LINE__, ExecuteName()), XWQComBSTR());
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
