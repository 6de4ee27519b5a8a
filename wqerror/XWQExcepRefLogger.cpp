#include "XWQExcepRefLogger.h"
#include "XWQError.h"

XWQExcepRefLogger::XWQExcepRefLogger(size_t capacity) : m_capacity(capacity ? capacity : 1)
{
}

void XWQExcepRefLogger::Add(const XWrappedWQException& exception)
{
    if (!exception.HasException())
        return;
    XWQError::WriteErrorToLogBook(exception, true, 0);
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_items.size() == m_capacity)
        m_items.pop_front();
    m_items.push_back(exception);
    ++m_total;
}

size_t XWQExcepRefLogger::Count() const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_items.size();
}

size_t XWQExcepRefLogger::TotalAdded() const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_total;
}

XWrappedWQException XWQExcepRefLogger::At(size_t index) const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return index < m_items.size() ? m_items[index] : XWrappedWQException();
}

XWrappedWQException XWQExcepRefLogger::Last() const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_items.empty() ? XWrappedWQException() : m_items.back();
}

void XWQExcepRefLogger::Clear()
{
    std::lock_guard<std::mutex> guard(m_mutex);
    m_items.clear();
}
