#include "xstoragerootconnhandler.h"

#include "xdelegatorreport.h"

#include <oleauto.h>

namespace
{

const XWQComBSTR& VerifyConnectionName()
{
    return XSDM_FUNCTION_NAME(L"XStorageRootConnHandler::VerifyConnection");
}

// Takes over the COM error information that the failed call left on this thread: it stays set
// for whoever reports the failure, and nothing is logged. False where the call left none.
bool TakeOverErrorInfo()
{
    IErrorInfo* info = nullptr;
    if (::GetErrorInfo(0, &info) != S_OK || !info)
        return false;
    ::SetErrorInfo(0, info);
    info->Release();
    return true;
}

void SetAppError(unsigned long line, HRESULT hr, const wchar_t* message)
{
    XDelegatorReport().Refuse(line, VerifyConnectionName(), hr, message);
}

bool IsListedRpcCode(unsigned code) noexcept
{
    switch (code)
    {
    case 5:
    case 14:
    case 87:
    case 122:
    case 164:
    case 997:
    case 1130:
    case 1338:
    case 1722:
    case 1726:
    case 1727:
    case 1898:
    case 1900:
        return true;
    default:
        break;
    }
    return (code >= 1700 && code <= 1791) || (code >= 1817 && code <= 1832) || (code >= 1913 && code <= 1918);
}
} // namespace

bool XStorageRootConnHandler::IsRpcClassError(HRESULT hr) noexcept
{
    if (hr >= 0 || hr == E_INVALIDARG)
        return false;
    const unsigned facility = (static_cast<unsigned long>(hr) >> 16) & 0x1FFF;
    if (facility == FACILITY_RPC)
        return true;
    if (facility == FACILITY_ITF)
        return false;
    // The code 87 is listed on purpose although E_INVALIDARG itself is excluded above: it stands
    // for ERROR_INVALID_PARAMETER under the other facilities.
    return IsListedRpcCode(static_cast<unsigned long>(hr) & 0xFFFF);
}

bool XStorageRootConnHandler::VerifyConnection(HRESULT& hr, bool& connectionFault, void*)
{
    if (FAILED(hr))
        Retain(hr);

    if (hr == E_OUTOFMEMORY)
    {
        connectionFault = false;
        if (!TakeOverErrorInfo())
            SetAppError(__LINE__, hr,
                        L"memory allocation error while invoking an interface call on the session data storage root");
    }
    else if (IsRpcClassError(hr))
    {
        if (TakeOverErrorInfo())
        {
            connectionFault = false;
        }
        else
        {
            hr = kRpcConnectionError;
            connectionFault = true;
            SetAppError(__LINE__, hr,
                        L"RPC connection error while invoking an interface call on the session data storage root");
        }
    }
    else if (hr == kServerPoolTimeout)
    {
        if (TakeOverErrorInfo())
        {
            connectionFault = false;
        }
        else
        {
            connectionFault = true;
            SetAppError(__LINE__, hr, L"timeout while invoking an COM interface call on the ServerPool connection");
        }
    }
    else
    {
        connectionFault = false;
    }
    return false;
}

HRESULT XStorageRootConnHandler::Retained() const
{
    XCritReadProxy<long> retained(m_retained);
    return static_cast<HRESULT>(*retained);
}

void XStorageRootConnHandler::ResetRetained()
{
    XCritProxy<long> retained(m_retained);
    *retained = S_OK;
}

void XStorageRootConnHandler::Retain(HRESULT hr)
{
    XCritProxy<long> retained(m_retained);
    if (SUCCEEDED(*retained))
        *retained = hr;
}
