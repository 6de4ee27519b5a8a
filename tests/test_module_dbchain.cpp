// A per-user category kept in a database, end to end through the registered module: the manager
// binds the cached extended IO over the database storage, which is in asynchronous user-profile
// mode over a storage root living in a single-threaded apartment of its own. Writes are piped to
// the storage's worker (multithreaded apartment), which reaches the root through the Global
// Interface Table, so every root call crosses the proxy/stub.
#include "iotesthelpers.h"
#include "mallocspy.h"
#include "moduletest.h"
#include "rootapartment.h"
#include "xcomtypes.h"

#include <gtest/gtest.h>

namespace
{
// A long interval: only a flush makes the worker run during a test.
const LONG kIntervalSeconds = 120;

// The category over the apartment's root (kept for calls made straight to it).
struct DatabaseCategory : UserDatabaseCategory
{
    explicit DatabaseCategory(const RootApartment& apartment) : DatabaseCategory(apartment.RootForThisThread()) {}
    XComPtr<IWQ_SessionDataIOEx> root;

private:
    explicit DatabaseCategory(const XComPtr<IWQ_SessionDataIOEx>& apartmentRoot)
        : UserDatabaseCategory(apartmentRoot, L"Suite\\Demo", kIntervalSeconds), root(apartmentRoot)
    {
    }
};
} // namespace

TEST(DatabaseCategory, WriteFlushAndReadBackThroughTheRoot)
{
    RootApartment apartment;
    ASSERT_EQ(S_OK, apartment.Setup());
    DatabaseCategory category(apartment);
    ASSERT_EQ(S_OK, category.setup);
    SDM_STORAGE_TYPE kind = static_cast<SDM_STORAGE_TYPE>(0);
    EXPECT_EQ(S_OK, category.manager->GetStorageType(kUserDatabase, &kind));
    EXPECT_EQ(3, static_cast<int>(kind));

    ASSERT_EQ(S_OK, WriteUserText(category.manager.Get(), L"Window", L"Left", L"10"));
    // Piped: the root has not seen it yet (the interval is long, nothing woke the worker).
    EXPECT_EQ(0u, apartment.Storage().CountCalls("StoreData"));

    EXPECT_EQ(S_OK, category.manager->FlushAsyncStorage(kUserDatabase));
    // The root's own cached layer stores under its lower-cased key.
    EXPECT_EQ(1u, apartment.Storage().CountCalls("StoreData(<[hkcu]>/suite/demo/window|1|left=10)"));

    // Forget the manager side's cache: the read goes through the storage to the root.
    EXPECT_EQ(S_OK, category.manager->FlushCache(kUserDatabase));
    HRESULT hr = E_FAIL;
    EXPECT_EQ(L"10", ReadUserText(category.manager.Get(), L"window", L"left", &hr));
    EXPECT_EQ(S_OK, hr);
    // The user-profile IO also answers the all-categories read.
    EXPECT_EQ(L"10", ReadUserText(category.manager.Get(), L"window", L"left", &hr, static_cast<SESSIONDATATYPE>(0)));
    EXPECT_EQ(S_OK, hr);

    HRESULT async = E_FAIL;
    EXPECT_EQ(S_OK, category.manager->GetLastErrorAsyncExecution(kUserDatabase, &async));
    EXPECT_EQ(S_OK, async);
}

TEST(DatabaseCategory, DeleteKeyIsPipedBehindTheWriteInOrder)
{
    RootApartment apartment;
    ASSERT_EQ(S_OK, apartment.Setup());
    DatabaseCategory category(apartment);
    ASSERT_EQ(S_OK, category.setup);
    ASSERT_EQ(S_OK, WriteUserText(category.manager.Get(), L"Window", L"Left", L"10"));
    EXPECT_EQ(S_OK, category.manager->DeleteKey(XWQComBSTR(L"Window"), kUserDatabase));
    EXPECT_EQ(0u, apartment.Storage().CountCalls("DeleteKey"));
    EXPECT_EQ(S_OK, category.manager->FlushAsyncStorage(kUserDatabase));
    // In piping order: the write, then the deletion.
    const std::vector<std::string> calls = apartment.Storage().Calls();
    std::vector<std::string> order;
    for (const std::string& call : calls)
        if (call.rfind("StoreData(", 0) == 0 || call.rfind("DeleteKey(", 0) == 0)
            order.push_back(call);
    EXPECT_EQ((std::vector<std::string>{"StoreData(<[hkcu]>/suite/demo/window|1|left=10)",
                                        "DeleteKey(<[HKCU]>/Suite/Demo/Window)"}),
              order);
}

TEST(DatabaseCategory, ReleasingEverythingWithWritesPendingRunsThemFirst)
{
    RootApartment apartment;
    ASSERT_EQ(S_OK, apartment.Setup());
    {
        DatabaseCategory category(apartment);
        ASSERT_EQ(S_OK, category.setup);
        ASSERT_EQ(S_OK, WriteUserText(category.manager.Get(), L"Window", L"Top", L"20"));
        EXPECT_EQ(0u, apartment.Storage().CountCalls("StoreData"));
    }
    EXPECT_EQ(1u, apartment.Storage().CountCalls("StoreData(<[hkcu]>/suite/demo/window|1|top=20)"));
}

TEST(DatabaseCategory, CyclesLeaveNothingOfTheModulesBehind)
{
    RootApartment apartment;
    ASSERT_EQ(S_OK, apartment.Setup());
    DatabaseCategory category(apartment);
    ASSERT_EQ(S_OK, category.setup);
    const auto cycle = [&category](int i) {
        WriteUserText(category.manager.Get(), L"Window", L"Left", std::to_wstring(i).c_str());
        category.manager->FlushAsyncStorage(kUserDatabase);
        category.manager->FlushCache(kUserDatabase);
        ReadUserText(category.manager.Get(), L"window", L"left");
    };
    tagSESSIONDATAVALUE one{::SysAllocString(L"n"), ::SysAllocString(L"v")};
    const auto direct = [&category, &one] { category.root->WriteStringList(XWQComBSTR(L"direct"), 1, &one); };
    cycle(0);  // once-per-process strings, proxies and the worker's container are made here
    direct();

    // Wine's stub keeps a block of every [in] record array that crosses apartments (measured
    // here with direct calls on the root's proxy); the cycles, one crossing write each, may
    // leave exactly that, no more. Growth is measured from the first call under the spy, which
    // leaves a block of Wine's own.
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    direct();
    const size_t beforeDirect = spy.Outstanding();
    for (int i = 0; i < 5; ++i)
        direct();
    const size_t perCrossingWrite = (spy.Outstanding() - beforeDirect) / 5;
    EXPECT_EQ(beforeDirect + perCrossingWrite * 5, spy.Outstanding());
    EXPECT_LE(perCrossingWrite, 1u);
    cycle(1);
    const size_t beforeCycles = spy.Outstanding();
    for (int i = 2; i <= 6; ++i)
        cycle(i);
    EXPECT_EQ(beforeCycles + perCrossingWrite * 5, spy.Outstanding());
    EXPECT_EQ(0u, spy.Refreed());
    XFreeValueRecords(&one, 1);
    EXPECT_EQ(7u, apartment.Storage().CountCalls("StoreData(<[hkcu]>/suite/demo/window|1|left="));
}
