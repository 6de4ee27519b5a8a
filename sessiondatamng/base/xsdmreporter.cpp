#include "xsdmreporter.h"

void XSdmReporter::Raise(unsigned long line, const XWQComBSTR& function, HRESULT hr, const wchar_t* message,
                         XWQEXCEP::EXCEPTION_TYPE type) const
{
    XSdmThrow(Where(line, function), hr, XWQComBSTR(message), type);
}

void XSdmReporter::RaiseSystem(unsigned long line, const XWQComBSTR& function, DWORD error, const wchar_t* message) const
{
    XSdmThrow(Where(line, function), error ? HRESULT_FROM_WIN32(error) : E_FAIL, XWQComBSTR(message),
              XWQEXCEP::EXCEP_SYSTEM);
}

void XSdmReporter::RaiseNullPointer(unsigned long line, const XWQComBSTR& function, const wchar_t* message) const
{
    XWQError::CheckPtr_ThrowExcep(Where(line, function), nullptr, XWQComBSTR(message));
    // CheckPtr_ThrowExcep throws for a null pointer; nothing returns from here.
    XSdmThrow(Where(line, function), E_POINTER, XWQComBSTR(message));
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
