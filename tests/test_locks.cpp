// The reentrant critical section, its guard and the read/write lock.
#include "XCriticalSectionEx.h"
#include "XThreadBasedCritSect.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

TEST(XThreadBasedCritSect, IsReentrantForItsThread)
{
    XThreadBasedCritSect lock;
    XSmartThreadBasedCritSectPtr outer(lock, "unit", 1);
    outer.Lock();
    {
        XSmartThreadBasedCritSectPtr inner(lock, "unit", 2);
        inner.Lock();
        EXPECT_EQ(::GetCurrentThreadId(), lock.OwnerThreadId());
    }
    EXPECT_EQ(::GetCurrentThreadId(), lock.OwnerThreadId());
    bool otherGotIt = true;
    std::thread([&] { otherGotIt = lock.TryLock(); }).join();
    EXPECT_FALSE(otherGotIt);
}

TEST(XThreadBasedCritSect, GuardReleasesOnScopeExit)
{
    XThreadBasedCritSect lock;
    {
        XSmartThreadBasedCritSectPtr guard(lock, "xsessiondatamngimpl", 42);
        guard.Lock();
        EXPECT_TRUE(guard.IsLocked());
        EXPECT_STREQ("xsessiondatamngimpl", guard.SourceUnit());
        EXPECT_EQ(42u, guard.Line());
    }
    EXPECT_EQ(0u, lock.OwnerThreadId());
    bool otherGotIt = false;
    std::thread([&] {
        otherGotIt = lock.TryLock();
        if (otherGotIt)
            lock.Unlock();
    }).join();
    EXPECT_TRUE(otherGotIt);
}

TEST(XThreadBasedCritSect, SerialisesThreads)
{
    XThreadBasedCritSect lock;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 10000; ++i)
            {
                XSmartThreadBasedCritSectPtr guard(lock, "unit", 1);
                guard.Lock();
                counter = counter + 1;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(40000, counter);
}

TEST(XCriticalSectionEx, ReadersShareWritersExclude)
{
    XCriticalSectionEx lock;
    lock.Lock(XCriticalSectionEx::lockRead);
    bool secondReader = false, writer = true;
    std::thread([&] {
        secondReader = lock.TryLock(XCriticalSectionEx::lockRead);
        if (secondReader)
            lock.Unlock(XCriticalSectionEx::lockRead);
        writer = lock.TryLock(XCriticalSectionEx::lockWrite);
    }).join();
    EXPECT_TRUE(secondReader);
    EXPECT_FALSE(writer);
    lock.Unlock(XCriticalSectionEx::lockRead);
    lock.Lock(XCriticalSectionEx::lockWrite);
    bool reader = true;
    std::thread([&] { reader = lock.TryLock(XCriticalSectionEx::lockRead); }).join();
    EXPECT_FALSE(reader);
    lock.Unlock(XCriticalSectionEx::lockWrite);
}
