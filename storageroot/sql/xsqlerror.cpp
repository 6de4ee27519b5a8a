#include "xsqlerror.h"

#include "xsdmreporter.h"

void XSqlError::Raise(const wchar_t* function, HRESULT hr, const XWQComBSTR& message)
{
    static const XSdmReporter report("xsqlconnection", GUID_NULL);
    report.Raise(__LINE__, XWQComBSTR(function), hr, message.c_str());
}
