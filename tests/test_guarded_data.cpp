// Guarded data: values and owned pointers reached only through scoped proxies; scoped lock
// references on a lock by itself.
#include "XBasicCritSection.h"
#include "testenv.h"
#include "threadingdoubles.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace
{
struct Tracked
{
    explicit Tracked(int id) : id(id) { ++alive; }
    ~Tracked() { --alive; }
    int id;
    static int alive;
};
int Tracked::alive = 0;

// Runs work on another thread; true when it finished within ten seconds (then joined).
template <class Work>
bool FinishesOnAnotherThread(Work work)
{
    XHandle done(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread other([&] {
        work();
        ::SetEvent(done.Get());
    });
    const bool finished = ::WaitForSingleObject(done.Get(), 10000) == WAIT_OBJECT_0;
    if (finished)
        other.join();
    else
        other.detach();
    return finished;
}
} // namespace

TEST(GuardedData, WriteProxyChangesTheValueAndReadProxySeesIt)
{
    XCritData<std::wstring> data(L"first");
    {
        XCritProxy<std::wstring> value(data);
        EXPECT_EQ(L"first", *value);
        *value = L"second";
        value->append(L"!");
    }
    XCritReadProxy<std::wstring> value(data);
    EXPECT_EQ(L"second!", *value);
    EXPECT_EQ(7u, value->size());
}

TEST(GuardedData, ConstItemIsReadThroughTheConstReadProxy)
{
    XCritData<long> data(42L);
    const XCritData<long>& constData = data;
    XCritReadProxy_const<long> value(constData);
    EXPECT_EQ(42L, *value);
}

TEST(GuardedData, ProxiesOfOneThreadNest)
{
    XCritData<int> data(1);
    XCritProxy<int> outer(data);
    {
        XCritProxy<int> inner(data);
        *inner = 2;
        XCritReadProxy<int> reader(data);
        EXPECT_EQ(2, *reader);
    }
    EXPECT_EQ(2, *outer);
}

TEST(GuardedData, CounterIncrementedAMillionTimesUnderTheWriteProxyEndsExact)
{
    XCritData<long> counter(0L);
    auto work = [&] {
        for (int i = 0; i < 500000; ++i)
        {
            XCritProxy<long> value(counter);
            *value = *value + 1;
        }
    };
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();
    XCritReadProxy<long> value(counter);
    EXPECT_EQ(1000000L, *value);
}

TEST(GuardedData, ReadProxyCannotBeUpgraded)
{
    ClearLogBook();
    XCritData<int> data(5);
    {
        XCritReadProxy<int> reader(data);
        try
        {
            XCritProxy<int> writer(data);
            FAIL() << "a read reference was upgraded";
        }
        catch (const XWrappedWQException& refused)
        {
            EXPECT_EQ(L"unable to add a write lock reference to a read lock", refused->Message().ToWString());
        }
        EXPECT_EQ(5, *reader);
    }
    // Everything was given back: another thread can write.
    EXPECT_TRUE(FinishesOnAnotherThread([&] {
        XCritProxy<int> writer(data);
        *writer = 6;
    }));
    EXPECT_EQ(0u, LogLinesWith("trying to unlock"));
}

TEST(GuardedData, ReadersShareTheItem)
{
    XCritData<int> data(3);
    XCritReadProxy<int> reader(data);
    int seen = 0;
    EXPECT_TRUE(FinishesOnAnotherThread([&] {
        XCritReadProxy<int> other(data);
        seen = *other;
    }));
    EXPECT_EQ(3, seen);
}

TEST(GuardedData, WriterExcludesOtherThreads)
{
    XCritData<int> data(0);
    XHandle readerGotIt(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    int seen = -1;
    std::thread other;
    {
        XCritProxy<int> writer(data);
        other = std::thread([&] {
            XCritReadProxy<int> reader(data);
            seen = *reader;
            ::SetEvent(readerGotIt.Get());
        });
        EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), ::WaitForSingleObject(readerGotIt.Get(), 200));
        *writer = 9;
    }
    EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(readerGotIt.Get(), 10000));
    other.join();
    EXPECT_EQ(9, seen);
}

TEST(GuardedData, GuardedPointerStartsEmptyAndResetDestroysTheOldObject)
{
    Tracked::alive = 0;
    {
        XCritDataPtr<Tracked> data;
        {
            XCritProxyPtr<Tracked> pointer(data);
            EXPECT_FALSE(pointer);
            pointer.Reset(std::make_unique<Tracked>(1));
            EXPECT_EQ(1, pointer->id);
        }
        {
            XCritProxyPtr<Tracked> pointer(data);
            pointer.Reset(std::make_unique<Tracked>(2));
            EXPECT_EQ(1, Tracked::alive);
        }
        XCritReadProxyPtr_const<Tracked> reader(data);
        ASSERT_TRUE(reader);
        EXPECT_EQ(2, reader->id);
        EXPECT_EQ(2, reader.Get()->id);
    }
    EXPECT_EQ(0, Tracked::alive);
}

TEST(GuardedData, SmartReferencesLockALockByItself)
{
    CountingLockTraits::Reset();
    CountingCritSection section;
    {
        XSmartCritSection<CountingCritSection>::WriteRef outer(section);
        XSmartCritSection<CountingCritSection>::ReadRef inner(section);
        EXPECT_EQ(1, CountingLockTraits::writeLocks.load());
    }
    EXPECT_EQ(1, CountingLockTraits::writeUnlocks.load());
    {
        XSmartCritSection<CountingCritSection>::ReadRef reader(section);
        EXPECT_EQ(1, CountingLockTraits::readLocks.load());
    }
    EXPECT_EQ(1, CountingLockTraits::readUnlocks.load());
}

TEST(GuardedData, RefusedSmartReferenceLeavesNothingToRelease)
{
    ClearLogBook();
    CountingLockTraits::Reset();
    CountingCritSection section;
    {
        XSmartCritSection<CountingCritSection>::ReadRef reader(section);
        EXPECT_THROW(XSmartCritSection<CountingCritSection>::WriteRef writer(section), XWrappedWQException);
    }
    EXPECT_EQ(1, CountingLockTraits::readUnlocks.load());
    EXPECT_EQ(0u, LogLinesWith("trying to unlock"));
    EXPECT_EQ(0u, LogLinesWith("expected to be removed"));
}
