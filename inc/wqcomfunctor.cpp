#include "wqcomfunctor.h"

#include "xsdmreporter.h"

namespace WQComFunctor
{
namespace report
{
namespace
{
const XSdmReporter& Report()
{
    static const XSdmReporter report("wqcomfunctor", GUID_NULL);
    return report;
}
} // namespace

void CheckTarget(const void* target, const wchar_t* function)
{
    if (target)
        return;
    Report().CheckPointerOrRaise(__LINE__, XWQComBSTR(function), target, L"interface pointer is NULL");
}

void InvalidCallHandler()
{
    Report().Raise(__LINE__, XSDM_FUNCTION_NAME(L"XComFunImpl::funCallImpl"), E_FAIL, L"call handler is not valid");
}

void OutOfMemory()
{
    XSdmRaiseOutOfMemory();
}
} // namespace report
} // namespace WQComFunctor
