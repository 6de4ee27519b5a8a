// XSdmReporter: where a class of the module reports failures, its source unit and the GUID of
// its error info, and the one way every class raises and reports them.
//
//   Run           the boundary of a COM method (XSdmBoundary): what the body throws becomes the
//                 method's HRESULT as the error contract says;
//   Raise         throws the error library's exception: error info and a log line at the
//                 boundary (RaiseSystem for a failed system call, CheckPointerOrRaise for a
//                 null pointer);
//   CheckPointer  the contract's pointer check, answered at once (S_OK or the reported failure);
//   Refuse        a request the class itself refuses, answered at once with error info and a log
//                 line (the application-error path);
//   Names         the check of keys, value names and values (XNameCheck).
// XSdmRaiseOutOfMemory stands for every failed allocation of memory handed to a caller: it
// throws a _com_error, which the boundary passes on as E_OUTOFMEMORY without error info.
#pragma once

#include "xnamecheck.h"
#include "xsdmerror.h"

#include <utility>

class XSdmReporter
{
public:
    XSdmReporter(const char* unit, const GUID& guid) noexcept : m_unit(unit), m_guid(guid) {}

    const char* Unit() const noexcept { return m_unit; }
    const GUID& Guid() const noexcept { return m_guid; }

    template <class Body>
    HRESULT Run(unsigned long line, const XWQComBSTR& function, Body&& body) const noexcept
    {
        return XSdmBoundary(m_unit, line, function, m_guid, std::forward<Body>(body));
    }
    WQErrorLocation Where(unsigned long line, const XWQComBSTR& function) const
    {
        return XSdmLocation(m_unit, line, function, m_guid);
    }
    [[noreturn]] void Raise(unsigned long line, const XWQComBSTR& function, HRESULT hr, const wchar_t* message,
                            XWQEXCEP::EXCEPTION_TYPE type = XWQEXCEP::EXCEP_APPLICATION) const;
    // Raise for a failed system call: the HRESULT of its error code (E_FAIL for 0).
    [[noreturn]] void RaiseSystem(unsigned long line, const XWQComBSTR& function, DWORD error,
                                  const wchar_t* message) const;
    // Raise for a null pointer, by the contract's pointer check.
    void CheckPointerOrRaise(unsigned long line, const XWQComBSTR& function, const void* pointer,
                             const wchar_t* message = L"") const
    {
        if (!pointer)
            RaiseNullPointer(line, function, message);
    }
    // The location is made only for a report: a check that passes costs nothing.
    HRESULT CheckPointer(unsigned long line, const XWQComBSTR& function, const void* pointer) const
    {
        return pointer ? S_OK : ReportNullPointer(line, function);
    }
    HRESULT Refuse(unsigned long line, const XWQComBSTR& function, HRESULT hr, const wchar_t* message) const;
    XNameCheck Names(unsigned long line, const XWQComBSTR& function) const noexcept
    {
        return XNameCheck(m_unit, line, function, m_guid);
    }

private:
    HRESULT ReportNullPointer(unsigned long line, const XWQComBSTR& function) const;
    [[noreturn]] void RaiseNullPointer(unsigned long line, const XWQComBSTR& function, const wchar_t* message) const;

    const char* m_unit;
    const GUID& m_guid;
};

[[noreturn]] void XSdmRaiseOutOfMemory();
