#include "WQComProxy.h"

#include "xsdmreporter.h"

namespace WQComProxy
{
namespace report
{
namespace
{
const char kUnit[] = "WQComProxy";

const XSdmReporter& Report()
{
    static const XSdmReporter report(kUnit, GUID_NULL);
    return report;
}

const XWQComBSTR& DoRemoteCallName()
{
    return XSDM_FUNCTION_NAME(L"XComProxyPolicy::DoRemoteCall");
}
} // namespace

void InvocationNotRegistered()
{
    Report().Raise(__LINE__, DoRemoteCallName(), E_FAIL, L"proxy call invokation implementation not registered");
}

HRESULT OnWrappedException(const XWrappedWQException& exception) noexcept
{
    return xsdm_detail::OnWQException(kUnit, __LINE__, DoRemoteCallName(), GUID_NULL, exception);
}

HRESULT OnStdException(const std::exception& exception) noexcept
{
    return xsdm_detail::OnStdException(kUnit, __LINE__, DoRemoteCallName(), GUID_NULL, exception);
}

HRESULT OnUnknownException() noexcept
{
    return xsdm_detail::OnUnknownException(kUnit, __LINE__, DoRemoteCallName(), GUID_NULL);
}
} // namespace report
} // namespace WQComProxy
