#include "stdafx.h"

#include "xsetranslator.h"

void XSessionDataMng::TranslateCException(unsigned int code, EXCEPTION_POINTERS* pointers)
{
    XSdmTranslateStructuredException(code, pointers);
}
