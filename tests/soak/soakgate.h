// A reader-writer gate that lets a writer in: readers (every operation) hold it shared, a writer
// (a rebinding) exclusively, and readers wait while a writer is waiting, so that a steady stream
// of operations cannot keep a rebinding out for ever.
#pragma once

#include <windows.h>

#include <atomic>
#include <shared_mutex>

class SoakGate
{
public:
    void lock_shared()
    {
        while (m_writers.load() > 0)
            ::Sleep(1);
        m_mutex.lock_shared();
    }
    void unlock_shared() { m_mutex.unlock_shared(); }
    void lock()
    {
        ++m_writers;
        m_mutex.lock();
    }
    void unlock()
    {
        m_mutex.unlock();
        --m_writers;
    }

private:
    std::shared_mutex m_mutex;
    std::atomic<int> m_writers{0};
};
