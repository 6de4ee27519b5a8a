#include "xsetranslator.h"

#include "xsdmerror.h"

void XSdmTranslateStructuredException(unsigned int code, EXCEPTION_POINTERS* pointers)
{
    XWQError::TranslateCException(
        XSdmLocation("stdafx", __LINE__, XSDM_FUNCTION_NAME(L"XSessionDataMng::TranslateCException")), code, pointers,
        true);
}
