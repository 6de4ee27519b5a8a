// Reentrant critical section owned per thread, with a scoped guard that remembers where it
// was taken (source unit and line) for diagnostics.
#pragma once

#include <windows.h>

class XThreadBasedCritSect
{
public:
    XThreadBasedCritSect() noexcept;
    ~XThreadBasedCritSect();
    XThreadBasedCritSect(const XThreadBasedCritSect&) = delete;
    XThreadBasedCritSect& operator=(const XThreadBasedCritSect&) = delete;

    void Lock() noexcept;
    void Unlock() noexcept;
    bool TryLock() noexcept;
    // Thread id of the holder, 0 when free. For diagnostics only.
    DWORD OwnerThreadId() const noexcept;

private:
    CRITICAL_SECTION m_section;
    volatile LONG m_owner = 0;
    LONG m_depth = 0;
};

// Scoped guard: constructed with the lock, the source unit name and the line, then Lock().
// The destructor releases whatever the guard still holds.
class XSmartThreadBasedCritSectPtr
{
public:
    XSmartThreadBasedCritSectPtr(XThreadBasedCritSect& lock, const char* sourceUnit, unsigned long line) noexcept;
    ~XSmartThreadBasedCritSectPtr();
    XSmartThreadBasedCritSectPtr(const XSmartThreadBasedCritSectPtr&) = delete;
    XSmartThreadBasedCritSectPtr& operator=(const XSmartThreadBasedCritSectPtr&) = delete;

    void Lock() noexcept;
    void Unlock() noexcept;
    bool IsLocked() const noexcept { return m_locks > 0; }
    const char* SourceUnit() const noexcept { return m_sourceUnit; }
    unsigned long Line() const noexcept { return m_line; }

private:
    XThreadBasedCritSect& m_lock;
    const char* m_sourceUnit;
    unsigned long m_line;
    int m_locks = 0;
};
