#include "wqcomfunctor.h"

#include "xsdmerror.h"

namespace WQComFunctor
{
namespace report
{
namespace
{
const char kUnit[] = "wqcomfunctor";
}

void CheckTarget(const void* target, const wchar_t* function)
{
    if (target)
        return;
    XWQError::CheckPtr_ThrowExcep(XSdmLocation(kUnit, __LINE__, XWQComBSTR(function)), target,
                                  XWQComBSTR(L"interface pointer is NULL"));
}

void InvalidCallHandler()
{
    XSdmThrow(XSdmLocation(kUnit, __LINE__, XSDM_FUNCTION_NAME(L"XComFunImpl::funCallImpl")), E_FAIL,
              L"call handler is not valid");
}

void OutOfMemory()
{
    throw _com_error(E_OUTOFMEMORY);
}
} // namespace report
} // namespace WQComFunctor
