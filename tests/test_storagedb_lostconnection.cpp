// A lost connection to the storage root in asynchronous mode: every acknowledged write either
// reaches the root or is reported by the next flush, whatever SetRoot does in between; and the
// way a client recovers (a new storage on a working root, then the writes since its last
// successful flush written again).
#include "storagedbtest.h"

namespace
{
const LONG kLongInterval = 120;
// The root's server went away: an RPC-class failure without error information, which breaks
// the connection for every later call.
const HRESULT kUnavailable = HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);

class StorageDbLostConnectionTest : public StorageDbTest
{
protected:
    void BindAsync(IWQ_SessionDataStorageDb* target)
    {
        ASSERT_EQ(S_OK, target->SetRoot(root->Root()));
        ASSERT_EQ(S_OK, target->SetRootKey(XWQComBSTR(L"app")));
        ASSERT_EQ(S_OK, target->SetAsyncWriteMode(kLongInterval));
    }
    static HRESULT Store(IWQ_SessionDataStorageDb* target, const wchar_t* key, const wchar_t* value)
    {
        PairRecords records(Pairs{{L"n", value}});
        return target->StoreData(XWQComBSTR(key), records.Count(), records.Data());
    }
    static HRESULT Retained(IWQ_SessionDataStorageDb* target)
    {
        HRESULT retained = S_OK;
        EXPECT_EQ(S_OK, target->GetLastErrorAsyncExecution(&retained));
        return retained;
    }
};
} // namespace

TEST_F(StorageDbLostConnectionTest, WritesPipedAfterTheConnectionBrokeAreReportedAfterSetRootOfTheSameRoot)
{
    BindAsync(storage.Get());
    root->SetResult("WriteStringList", kUnavailable);
    ASSERT_EQ(S_OK, Store(storage.Get(), L"a", L"1"));
    EXPECT_TRUE(FAILED(storage->FlushAsyncStorage()));

    root->SetResult("WriteStringList", S_OK);  // the root answers again
    ASSERT_EQ(S_OK, Store(storage.Get(), L"b", L"2"));  // acknowledged, but the connection is broken
    ASSERT_EQ(S_OK, storage->SetRoot(root->Root()));

    EXPECT_TRUE(FAILED(storage->FlushAsyncStorage()));
    EXPECT_TRUE(FAILED(Retained(storage.Get())));
    // b never arrived.
    EXPECT_EQ(std::vector<std::string>{"WriteStringList(app/a|1|n=1)"}, Calls());
}

TEST_F(StorageDbLostConnectionTest, TheReportOfALostWriteOutlivesEveryLaterSetRoot)
{
    BindAsync(storage.Get());
    root->SetResult("WriteStringList", kUnavailable);
    ASSERT_EQ(S_OK, Store(storage.Get(), L"a", L"1"));
    ASSERT_EQ(S_OK, storage->SetRoot(root->Root()));
    ASSERT_EQ(S_OK, storage->SetRoot(root->Root()));
    EXPECT_TRUE(FAILED(Retained(storage.Get())));
    EXPECT_TRUE(FAILED(storage->FlushAsyncStorage()));
}

TEST_F(StorageDbLostConnectionTest, AClientRecoversWithANewStorageAndRewritesWhatItWroteSinceItsLastGoodFlush)
{
    BindAsync(storage.Get());
    ASSERT_EQ(S_OK, Store(storage.Get(), L"a", L"1"));
    ASSERT_EQ(S_OK, storage->FlushAsyncStorage());  // a is safe; the client's journal starts afresh

    root->SetResult("WriteStringList", kUnavailable);
    ASSERT_EQ(S_OK, Store(storage.Get(), L"b", L"2"));
    ASSERT_TRUE(FAILED(storage->FlushAsyncStorage()));  // b and what follows may be lost
    ASSERT_EQ(S_OK, Store(storage.Get(), L"c", L"3"));
    root->SetResult("WriteStringList", S_OK);

    // Recovery: a new storage over a working root, bound as the old one was; the old one goes.
    XComPtr<IWQ_SessionDataStorageDb> fresh = NewStorage<XSessionDataStorageDb, IWQ_SessionDataStorageDb>();
    BindAsync(fresh.Get());
    storage.Reset();
    root->ClearCalls();
    ASSERT_EQ(S_OK, Store(fresh.Get(), L"b", L"2"));
    ASSERT_EQ(S_OK, Store(fresh.Get(), L"c", L"3"));

    EXPECT_EQ(S_OK, fresh->FlushAsyncStorage());
    EXPECT_EQ(S_OK, Retained(fresh.Get()));
    EXPECT_EQ((std::vector<std::string>{"WriteStringList(app/b|1|n=2)", "WriteStringList(app/c|1|n=3)"}), Calls());
}
