// Reader/writer lock: many readers or one writer. Not reentrant by itself; the reference-counted
// critical section of the threading headers adds per-thread reentrancy on top of it.
#pragma once

#include <windows.h>

class XCriticalSectionEx
{
public:
    enum LockKind
    {
        lockRead = 0,
        lockWrite = 1
    };

    XCriticalSectionEx() noexcept { ::InitializeSRWLock(&m_lock); }
    XCriticalSectionEx(const XCriticalSectionEx&) = delete;
    XCriticalSectionEx& operator=(const XCriticalSectionEx&) = delete;

    void Lock(LockKind kind = lockWrite) noexcept
    {
        if (kind == lockRead)
            ::AcquireSRWLockShared(&m_lock);
        else
            ::AcquireSRWLockExclusive(&m_lock);
    }

    bool TryLock(LockKind kind = lockWrite) noexcept
    {
        return (kind == lockRead ? ::TryAcquireSRWLockShared(&m_lock) : ::TryAcquireSRWLockExclusive(&m_lock)) != 0;
    }

    void Unlock(LockKind kind = lockWrite) noexcept
    {
        if (kind == lockRead)
            ::ReleaseSRWLockShared(&m_lock);
        else
            ::ReleaseSRWLockExclusive(&m_lock);
    }

private:
    SRWLOCK m_lock;
};
