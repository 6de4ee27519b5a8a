// The error library's exception: reference counted, thrown and caught by value through the
// handle XWrappedWQException.
#pragma once

#include "WQErrorLocation.h"

struct XWQEXCEP
{
    // Severities of reports. The module reports every failure with SEV_ERROR (8).
    enum ERROR_SEVERITY
    {
        SEV_DEBUG = 1,
        SEV_INFO = 2,
        SEV_WARNING = 4,
        SEV_ERROR = 8,
        SEV_FATAL = 16
    };

    // Kinds of exceptions raised through XWQExceptionFactory::DoThrowException.
    enum EXCEPTION_TYPE
    {
        EXCEP_APPLICATION = 0,  // a condition the module itself detected
        EXCEP_SYSTEM = 1,       // a failed system call
        EXCEP_COM = 2,          // a failed COM call
        EXCEP_STD = 3,          // a C++ standard library exception
        EXCEP_UNKNOWN = 4,      // anything else
        EXCEP_STRUCTURED = 5,   // a processor or system (structured) exception
        EXCEP_OUTOFMEMORY = 6
    };
};

class XWQException
{
public:
    XWQException(XWQEXCEP::EXCEPTION_TYPE type, const WQErrorLocation& location, HRESULT hr,
                 XWQEXCEP::ERROR_SEVERITY severity, long code2, const XWQComBSTR& message,
                 const XWQComBSTR& detail, long number);

    void AddRef() noexcept;
    void Release() noexcept;

    XWQEXCEP::EXCEPTION_TYPE Type() const noexcept { return m_type; }
    const WQErrorLocation& Location() const noexcept { return m_location; }
    HRESULT Result() const noexcept { return m_hr; }
    XWQEXCEP::ERROR_SEVERITY Severity() const noexcept { return m_severity; }
    long SecondCode() const noexcept { return m_code2; }
    const XWQComBSTR& Message() const noexcept { return m_message; }
    const XWQComBSTR& Detail() const noexcept { return m_detail; }
    long Number() const noexcept { return m_number; }
    // Message and detail as one text ("message: detail", or whichever is not empty).
    XWQComBSTR FullText() const;

private:
    ~XWQException() = default;

    volatile LONG m_refs = 1;
    XWQEXCEP::EXCEPTION_TYPE m_type;
    WQErrorLocation m_location;
    HRESULT m_hr;
    XWQEXCEP::ERROR_SEVERITY m_severity;
    long m_code2;
    XWQComBSTR m_message;
    XWQComBSTR m_detail;
    long m_number;
};

// Counted handle of an XWQException; the type that is thrown and caught.
class XWrappedWQException
{
public:
    XWrappedWQException() noexcept = default;
    explicit XWrappedWQException(XWQException* adopted) noexcept : m_p(adopted) {}
    XWrappedWQException(const XWrappedWQException& other) noexcept;
    XWrappedWQException(XWrappedWQException&& other) noexcept;
    XWrappedWQException& operator=(XWrappedWQException other) noexcept;
    ~XWrappedWQException();

    bool HasException() const noexcept { return m_p != nullptr; }
    XWQException* operator->() const noexcept { return m_p; }
    XWQException* Get() const noexcept { return m_p; }
    // The carried HRESULT; S_OK for an empty handle.
    HRESULT Result() const noexcept { return m_p ? m_p->Result() : S_OK; }

private:
    XWQException* m_p = nullptr;
};

class XWQExceptionFactory
{
public:
    [[noreturn]] static void DoThrowException(XWQEXCEP::EXCEPTION_TYPE type, const WQErrorLocation& location,
                                              HRESULT hr, XWQEXCEP::ERROR_SEVERITY severity, long code2,
                                              const XWQComBSTR& message, const XWQComBSTR& detail, long number);
    static XWrappedWQException Create(XWQEXCEP::EXCEPTION_TYPE type, const WQErrorLocation& location, HRESULT hr,
                                      XWQEXCEP::ERROR_SEVERITY severity, long code2, const XWQComBSTR& message,
                                      const XWQComBSTR& detail, long number);
};
