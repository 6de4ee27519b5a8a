#include "XThreadBasedCritSect.h"

XThreadBasedCritSect::XThreadBasedCritSect() noexcept
{
    ::InitializeCriticalSection(&m_section);
}

XThreadBasedCritSect::~XThreadBasedCritSect()
{
    ::DeleteCriticalSection(&m_section);
}

void XThreadBasedCritSect::Lock() noexcept
{
    ::EnterCriticalSection(&m_section);
    if (++m_depth == 1)
        ::InterlockedExchange(&m_owner, static_cast<LONG>(::GetCurrentThreadId()));
}

bool XThreadBasedCritSect::TryLock() noexcept
{
    if (!::TryEnterCriticalSection(&m_section))
        return false;
    if (++m_depth == 1)
        ::InterlockedExchange(&m_owner, static_cast<LONG>(::GetCurrentThreadId()));
    return true;
}

void XThreadBasedCritSect::Unlock() noexcept
{
    if (--m_depth == 0)
        ::InterlockedExchange(&m_owner, 0);
    ::LeaveCriticalSection(&m_section);
}

DWORD XThreadBasedCritSect::OwnerThreadId() const noexcept
{
    return static_cast<DWORD>(m_owner);
}

XSmartThreadBasedCritSectPtr::XSmartThreadBasedCritSectPtr(XThreadBasedCritSect& lock, const char* sourceUnit,
                                                           unsigned long line) noexcept
    : m_lock(lock), m_sourceUnit(sourceUnit), m_line(line)
{
}

XSmartThreadBasedCritSectPtr::~XSmartThreadBasedCritSectPtr()
{
    while (m_locks > 0)
        Unlock();
}

void XSmartThreadBasedCritSectPtr::Lock() noexcept
{
    m_lock.Lock();
    ++m_locks;
}

void XSmartThreadBasedCritSectPtr::Unlock() noexcept
{
    if (m_locks > 0)
    {
        --m_locks;
        m_lock.Unlock();
    }
}
