// XDelegatorThreadScheduler: the singleton, StartThread and RunThreadTask.
#include "XDelegatorThreadScheduler.h"
#include "testenv.h"
#include "threadingdoubles.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace
{
struct EntryRecord
{
    std::atomic<int> priority{-100};
    std::atomic<void*> argument{nullptr};
    std::atomic<bool> ran{false};
};

unsigned RecordEntry(void* argument)
{
    auto* record = static_cast<EntryRecord*>(argument);
    record->priority = ::GetThreadPriority(::GetCurrentThread());
    record->argument = argument;
    record->ran = true;
    return 42;
}

unsigned ThrowingEntry(void*)
{
    throw std::runtime_error("entry failed");
}

DWORD RunToEnd(const XHandle& thread)
{
    EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(thread.Get(), 10000));
    DWORD exitCode = 0;
    EXPECT_TRUE(::GetExitCodeThread(thread.Get(), &exitCode));
    return exitCode;
}
} // namespace

TEST(XDelegatorThreadScheduler, InstanceIsOneObjectForAllThreads)
{
    std::vector<XDelegatorThreadScheduler*> seen(8, nullptr);
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i)
        threads.emplace_back([&, i] {
            ++ready;
            while (ready.load() < static_cast<int>(seen.size()))
                ;
            seen[i] = &XDelegatorThreadScheduler::Instance();
        });
    for (auto& thread : threads)
        thread.join();
    for (XDelegatorThreadScheduler* instance : seen)
        EXPECT_EQ(&XDelegatorThreadScheduler::Instance(), instance);
}

TEST(XDelegatorThreadScheduler, StartThreadRunsTheEntryWithItsArgument)
{
    EntryRecord record;
    XHandle thread = XDelegatorThreadScheduler::Instance().StartThread(&RecordEntry, &record, -1);
    ASSERT_TRUE(thread);
    EXPECT_EQ(42u, RunToEnd(thread));
    EXPECT_TRUE(record.ran);
    EXPECT_EQ(&record, record.argument.load());
}

TEST(XDelegatorThreadScheduler, NegativePriorityLeavesTheDefault)
{
    EntryRecord record;
    XHandle thread = XDelegatorThreadScheduler::Instance().StartThread(&RecordEntry, &record, THREAD_PRIORITY_LOWEST);
    RunToEnd(thread);
    EXPECT_EQ(THREAD_PRIORITY_NORMAL, record.priority.load());
}

TEST(XDelegatorThreadScheduler, PriorityOfZeroOrMoreIsSetBeforeTheThreadRuns)
{
    EntryRecord record;
    XHandle thread = XDelegatorThreadScheduler::Instance().StartThread(&RecordEntry, &record, THREAD_PRIORITY_HIGHEST);
    RunToEnd(thread);
    EXPECT_EQ(THREAD_PRIORITY_HIGHEST, record.priority.load());
}

TEST(XDelegatorThreadScheduler, RefusedPriorityIsReportedAndTheEntryNeverRuns)
{
    EntryRecord record;
    try
    {
        XDelegatorThreadScheduler::Instance().StartThread(&RecordEntry, &record, 7);
        FAIL() << "priority 7 was accepted";
    }
    catch (const XWrappedWQException& report)
    {
        EXPECT_EQ(L"SetThreadPriority failed.", report->Message().ToWString());
        EXPECT_EQ(L"XDelegatorThreadScheduler::StartThread", report->Location().Function().ToWString());
    }
    EXPECT_FALSE(record.ran);
}

TEST(XDelegatorThreadScheduler, RunThreadTaskWithNullParameterReportsAndReturnsAllBitsSet)
{
    ClearLogBook();
    EXPECT_EQ(0xFFFFFFFFu, XDelegatorThreadScheduler::RunThreadTask(nullptr));
    EXPECT_EQ(1u, LogLinesWith("thread param == NULL - cannot run thread task routine"));
    EXPECT_EQ(1u, LogLinesWith("hr=0x80070057"));
    EXPECT_EQ(1u, LogLinesWith("XDelegatorThreadScheduler::RunThreadTask"));
}

TEST(XDelegatorThreadScheduler, EntryThatThrowsEndsItsThreadWithAllBitsSet)
{
    ClearLogBook();
    XHandle thread = XDelegatorThreadScheduler::Instance().StartThread(&ThrowingEntry, nullptr, -1);
    EXPECT_EQ(0xFFFFFFFFu, RunToEnd(thread));
    EXPECT_EQ(1u, LogLinesWith("entry failed"));
}

TEST(XDelegatorThreadScheduler, ManyThreadsCanBeStartedOneAfterAnother)
{
    for (int i = 0; i < 20; ++i)
    {
        EntryRecord record;
        XHandle thread = XDelegatorThreadScheduler::Instance().StartThread(&RecordEntry, &record, -1);
        EXPECT_EQ(42u, RunToEnd(thread));
    }
}
