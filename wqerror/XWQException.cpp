#include "XWQException.h"
#include "XWQLogBook.h"

#include <utility>

XWQException::XWQException(XWQEXCEP::EXCEPTION_TYPE type, const WQErrorLocation& location, HRESULT hr,
                           XWQEXCEP::ERROR_SEVERITY severity, long code2, const XWQComBSTR& message,
                           const XWQComBSTR& detail, long number)
    : m_type(type), m_location(location), m_hr(hr), m_severity(severity), m_code2(code2), m_message(message),
      m_detail(detail), m_number(number)
{
}

void XWQException::AddRef() noexcept
{
    ::InterlockedIncrement(&m_refs);
}

void XWQException::Release() noexcept
{
    if (::InterlockedDecrement(&m_refs) == 0)
        delete this;
}

XWQComBSTR XWQException::FullText() const
{
    if (m_detail.IsEmpty())
        return m_message;
    if (m_message.IsEmpty())
        return m_detail;
    return m_message + L": " + m_detail;
}

XWrappedWQException::XWrappedWQException(const XWrappedWQException& other) noexcept : m_p(other.m_p)
{
    if (m_p)
        m_p->AddRef();
}

XWrappedWQException::XWrappedWQException(XWrappedWQException&& other) noexcept
    : m_p(std::exchange(other.m_p, nullptr))
{
}

XWrappedWQException& XWrappedWQException::operator=(XWrappedWQException other) noexcept
{
    std::swap(m_p, other.m_p);
    return *this;
}

XWrappedWQException::~XWrappedWQException()
{
    if (m_p)
        m_p->Release();
}

XWrappedWQException XWQExceptionFactory::Create(XWQEXCEP::EXCEPTION_TYPE type, const WQErrorLocation& location,
                                                HRESULT hr, XWQEXCEP::ERROR_SEVERITY severity, long code2,
                                                const XWQComBSTR& message, const XWQComBSTR& detail, long number)
{
    return XWrappedWQException(new XWQException(type, location, hr, severity, code2, message, detail, number));
}

void XWQExceptionFactory::DoThrowException(XWQEXCEP::EXCEPTION_TYPE type, const WQErrorLocation& location,
                                           HRESULT hr, XWQEXCEP::ERROR_SEVERITY severity, long code2,
                                           const XWQComBSTR& message, const XWQComBSTR& detail, long number)
{
    throw Create(type, location, hr, severity, code2, message, detail, number);
}
