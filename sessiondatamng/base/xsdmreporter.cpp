#include "xsdmreporter.h"

void XSdmReporter::Raise(unsigned long line, const XWQComBSTR& function, HRESULT hr, const wchar_t* message,
                         XWQEXCEP::EXCEPTION_TYPE type) const
{
    XSdmThrow(Where(line, function), hr, XWQComBSTR(message), type);
}

HRESULT XSdmReporter::Refuse(unsigned long line, const XWQComBSTR& function, HRESULT hr, const wchar_t* message) const
{
    return XWQError::SetComAppError(Where(line, function), hr, XWQComBSTR(message), XWQComBSTR());
}

HRESULT XSdmReporter::ReportNullPointer(unsigned long line, const XWQComBSTR& function) const
{
    return XWQError::CheckPtr(Where(line, function), nullptr, XWQComBSTR());
}

void XSdmRaiseOutOfMemory()
{
    throw _com_error(E_OUTOFMEMORY);
}
