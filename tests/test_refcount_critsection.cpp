// XBasicRefCountCritSection: per-thread reference counts over the read/write lock, the refused
// upgrade and the logged (never thrown) faults of release.
#include "XBasicCritSection.h"
#include "testenv.h"
#include "threadingdoubles.h"

#include <gtest/gtest.h>
#include <thread>

namespace
{
class RefCountCritSection : public ::testing::Test
{
protected:
    void SetUp() override
    {
        CountingLockTraits::Reset();
        ClearLogBook();
    }
    void TearDown() override { CountingLockTraits::Reset(); }
};

std::string Text(const wchar_t* message)
{
    return NarrowText(message);
}
} // namespace

TEST_F(RefCountCritSection, SecondReferenceOfAThreadDoesNotLockAgain)
{
    CountingCritSection section;
    section.AddLockRef();
    section.AddLockRef();
    EXPECT_EQ(1, CountingLockTraits::writeLocks.load());
    section.ReleaseLockRef();
    EXPECT_EQ(0, CountingLockTraits::writeUnlocks.load());
    section.ReleaseLockRef();
    EXPECT_EQ(1, CountingLockTraits::writeUnlocks.load());
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST_F(RefCountCritSection, ThreadLockingTwiceHoldsTheLockUntilItsSecondRelease)
{
    XRefCountCritSection section;
    section.AddLockRef();
    section.AddLockRef();

    XHandle otherGotIt(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread other([&] {
        section.AddLockRef();
        ::SetEvent(otherGotIt.Get());
        section.ReleaseLockRef();
    });
    section.ReleaseLockRef();
    EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), ::WaitForSingleObject(otherGotIt.Get(), 200));
    section.ReleaseLockRef();
    EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(otherGotIt.Get(), 10000));
    other.join();
}

TEST_F(RefCountCritSection, ReleaseWithoutLockLogsAndLeavesTheStateUntouched)
{
    CountingCritSection section;
    EXPECT_NO_THROW(section.ReleaseLockRef());
    EXPECT_EQ(1u, LogLinesWith(Text(XBasicCritSectionReport::kNotLocked)));
    EXPECT_EQ(1u, LogLinesWith("XBasicRefCountCritSection::ReleaseLockRef"));
    EXPECT_EQ(1u, LogLinesWith("sev=8"));
    EXPECT_EQ(0, CountingLockTraits::writeUnlocks.load() + CountingLockTraits::readUnlocks.load());

    // No entry was left behind: the next reference is a first one again.
    section.AddLockRef();
    EXPECT_EQ(1, CountingLockTraits::writeLocks.load());
    section.ReleaseLockRef();
    EXPECT_EQ(1, CountingLockTraits::writeUnlocks.load());
    EXPECT_EQ(1u, ReadLogBook().size());
}

TEST_F(RefCountCritSection, WriteReferenceOnAReadReferenceIsRefused)
{
    CountingCritSection section;
    section.AddReadLockRef();
    try
    {
        section.AddLockRef();
        FAIL() << "the upgrade was not refused";
    }
    catch (const XWrappedWQException& refused)
    {
        EXPECT_EQ(E_FAIL, refused.Result());
        EXPECT_EQ(XWQEXCEP::SEV_ERROR, refused->Severity());
        EXPECT_EQ(std::wstring(XBasicCritSectionReport::kWriteOnReadRefused), refused->Message().ToWString());
        EXPECT_EQ(L"unable to add a write lock reference to a read lock", refused->Message().ToWString());
        EXPECT_EQ(L"XBasicRefCountCritSection::AddLockRef", refused->Location().Function().ToWString());
    }
    EXPECT_EQ(0, CountingLockTraits::writeLocks.load());

    // The refused reference was not counted: one release gives the read lock back.
    section.ReleaseLockRef();
    EXPECT_EQ(1, CountingLockTraits::readUnlocks.load());
    EXPECT_TRUE(ReadLogBook().empty());
}

TEST_F(RefCountCritSection, ReadReferenceOfAWriteHolderCountsOnItsWriteHold)
{
    CountingCritSection section;
    section.AddLockRef();
    EXPECT_NO_THROW(section.AddReadLockRef());
    EXPECT_EQ(0, CountingLockTraits::readLocks.load());
    section.ReleaseLockRef();
    section.ReleaseLockRef();
    EXPECT_EQ(1, CountingLockTraits::writeUnlocks.load());
    EXPECT_EQ(0, CountingLockTraits::readUnlocks.load());
}

TEST_F(RefCountCritSection, SeveralThreadsHoldReadReferencesAtOnce)
{
    XRefCountCritSection section;
    section.AddReadLockRef();
    XHandle otherGotIt(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread other([&] {
        section.AddReadLockRef();
        ::SetEvent(otherGotIt.Get());
        section.ReleaseLockRef();
    });
    EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(otherGotIt.Get(), 10000));
    section.ReleaseLockRef();
    other.join();
}

TEST_F(RefCountCritSection, ReleaseBelowZeroIsLoggedNotThrown)
{
    CountingCritSection section;
    section.AddLockRef();
    // Between giving the lock back and erasing the entry, a further release finds the count at 0.
    CountingLockTraits::afterUnlock = [&] { section.ReleaseLockRef(); };
    EXPECT_NO_THROW(section.ReleaseLockRef());
    EXPECT_EQ(1u, LogLinesWith(Text(XBasicCritSectionReport::kAlreadyUnlocked)));
    EXPECT_EQ(1u, LogLinesWith(
                      "trying to unlock the critical section being already unlocked for the running thread before"));
    EXPECT_EQ(1, CountingLockTraits::writeUnlocks.load());
}

TEST_F(RefCountCritSection, EntryReferencedAgainWhileBeingRemovedIsLoggedAndKept)
{
    CountingCritSection section;
    section.AddLockRef();
    CountingLockTraits::afterUnlock = [&] { section.AddLockRef(); };
    EXPECT_NO_THROW(section.ReleaseLockRef());
    EXPECT_EQ(1u, LogLinesWith(Text(XBasicCritSectionReport::kEntryNotRemoved)));
    EXPECT_EQ(1u, LogLinesWith("critical section reference count entry found for a thread expected to be removed"));
    EXPECT_EQ(2, CountingLockTraits::writeLocks.load());

    // The entry was kept with its new reference: releasing it is no fault.
    section.ReleaseLockRef();
    EXPECT_EQ(2, CountingLockTraits::writeUnlocks.load());
    EXPECT_EQ(0u, LogLinesWith(Text(XBasicCritSectionReport::kNotLocked)));
}

TEST_F(RefCountCritSection, ReleaseWithoutLockMessageIsExact)
{
    EXPECT_EQ(std::wstring(L"trying to unlock the critical section without having it locked for the running thread"),
              XBasicCritSectionReport::kNotLocked);
}
