// Bounded, thread-safe collection of wrapped exceptions: keeps the newest `capacity` entries,
// dropping the oldest when full. Each added exception is also written to the log book.
#pragma once

#include "XWQException.h"
#include <deque>
#include <mutex>

class XWQExcepRefLogger
{
public:
    explicit XWQExcepRefLogger(size_t capacity);

    void Add(const XWrappedWQException& exception);
    size_t Count() const;
    size_t Capacity() const noexcept { return m_capacity; }
    // Number of exceptions added over the logger's life, dropped ones included.
    size_t TotalAdded() const;
    XWrappedWQException At(size_t index) const;  // 0 is the oldest kept; empty handle past the end
    XWrappedWQException Last() const;            // empty handle when none
    void Clear();

private:
    size_t m_capacity;
    size_t m_total = 0;
    std::deque<XWrappedWQException> m_items;
    mutable std::mutex m_mutex;
};
