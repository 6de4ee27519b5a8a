#include "XThreadSync.h"

#include "xsdmreporter.h"

namespace
{
const XSdmReporter& Report()
{
    static const XSdmReporter report("XThreadSync", GUID_NULL);
    return report;
}

[[noreturn]] void ReportSystem(unsigned long line, const XWQComBSTR& function, DWORD error, const wchar_t* message)
{
    Report().RaiseSystem(line, function, error, message);
}

void CheckHandle(unsigned long line, const XWQComBSTR& function, HANDLE handle)
{
    Report().CheckPointerOrRaise(line, function, handle, L"wait handle is NULL");
}

void MakeEvent(XHandle& event, BOOL manualReset, bool initialState, const XWQComBSTR& function, unsigned long line)
{
    HANDLE created = ::CreateEventW(nullptr, manualReset, initialState ? TRUE : FALSE, nullptr);
    if (!created)
        ReportSystem(line, function, ::GetLastError(), L"CreateEvent failed");
    event.Reset(created);
}

const XWQComBSTR& SetEventName()
{
    return XSDM_FUNCTION_NAME(L"XThreadSync::SetEvent");
}

const XWQComBSTR& WaitForEventName()
{
    return XSDM_FUNCTION_NAME(L"XThreadSync::WaitForEvent");
}
} // namespace

void XThreadSync::CreateEventAutoReset(XHandle& event, bool initialState)
{
    MakeEvent(event, FALSE, initialState, XSDM_FUNCTION_NAME(L"XThreadSync::CreateEventAutoReset"), __LINE__);
}

void XThreadSync::CreateEvent(XHandle& event, bool initialState)
{
    MakeEvent(event, TRUE, initialState, XSDM_FUNCTION_NAME(L"XThreadSync::CreateEvent"), __LINE__);
}

void XThreadSync::SetEvent(HANDLE event)
{
    CheckHandle(__LINE__, SetEventName(), event);
    if (!::SetEvent(event))
    {
        const DWORD error = ::GetLastError();
        ReportSystem(__LINE__, SetEventName(), error, L"wait for signaled event failed");
    }
}

void XThreadSync::ResetEvent(HANDLE event)
{
    CheckHandle(__LINE__, SetEventName(), event);
    if (!::ResetEvent(event))
    {
        const DWORD error = ::GetLastError();
        ReportSystem(__LINE__, SetEventName(), error, L"wait for signaled event failed");
    }
}

XThreadSync::WaitStep XThreadSync::EvaluateWaitResult(DWORD waitResult, DWORD timeoutMs, DWORD lastError)
{
    switch (waitResult)
    {
    case WAIT_OBJECT_0 + 1:
        return WaitStep::messageArrived;
    case WAIT_FAILED:
        ReportSystem(__LINE__, WaitForEventName(), lastError, L"wait for signaled event failed");
    case WAIT_TIMEOUT:
        if (timeoutMs == INFINITE)
            Report().Raise(__LINE__, WaitForEventName(), E_FAIL, L"infinite wait event unexpectedly timed out");
        return WaitStep::timedOut;
    default:
        return WaitStep::signalled;
    }
}

bool XThreadSync::WaitForEvent(HANDLE event, DWORD timeoutMs)
{
    CheckHandle(__LINE__, WaitForEventName(), event);
    for (;;)
    {
        MSG message;
        while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
            ::DispatchMessageW(&message);
        const DWORD result = ::MsgWaitForMultipleObjectsEx(1, &event, timeoutMs, QS_ALLINPUT, 0);
        const DWORD lastError = result == WAIT_FAILED ? ::GetLastError() : 0;
        switch (EvaluateWaitResult(result, timeoutMs, lastError))
        {
        case WaitStep::signalled:
            return true;
        case WaitStep::timedOut:
            return false;
        case WaitStep::messageArrived:
            break;
        }
    }
}
