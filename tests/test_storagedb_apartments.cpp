// XSessionDataStorageDb created from the registered module, over a storage root that lives in a
// single-threaded apartment of its own: every root call runs on the root's thread, synchronous
// calls through the proxy of the caller, piped calls through the worker's own proxy.
#include "moduletest.h"
#include "recordingroot.h"
#include "staapartment.h"
#include "storagetesthelpers.h"
#include "xcomtypes.h"
#include "xstoragerootregistration.h"

#include <gtest/gtest.h>

#include <functional>

namespace
{

// A message-pumping single-threaded apartment that hosts a recording root (without the
// free-threaded marshaler: other apartments reach it through proxies) and runs work on request.
class RootApartment
{
public:
    RootApartment()
        : m_apartment(
              [this](XComPtr<IUnknown>& object) {
                  m_root = RecordingRoot::Create(false);
                  object = XComPtr<IUnknown>(m_root->Root());
                  m_root->Release();  // the apartment's reference keeps it
                  return S_OK;
              },
              IID_IWQ_SessionDataIOEx)
    {
    }
    RootApartment(const RootApartment&) = delete;
    RootApartment& operator=(const RootApartment&) = delete;

    HRESULT Setup() const { return m_apartment.Setup(); }
    DWORD ThreadId() const { return m_apartment.ThreadId(); }
    RecordingRoot& Root() const { return *m_root; }
    // A pointer to the root for the calling thread (a proxy outside the apartment).
    XComPtr<IWQ_SessionDataIOEx> RootForThisThread() const { return m_apartment.ForThisThread<IWQ_SessionDataIOEx>(); }
    // Runs work on the apartment's thread and waits for it.
    void Run(const std::function<void()>& work) { m_apartment.Run(work); }

private:
    RecordingRoot* m_root = nullptr;
    StaApartment m_apartment;
};

XComPtr<IWQ_SessionDataStorageDb> NewModuleStorage(HRESULT& hr)
{
    XComPtr<IWQ_SessionDataStorageDb> storage;
    hr = ::CoCreateInstance(CLSID_WQ_SessionDataStorageDb, nullptr, CLSCTX_INPROC_SERVER, IID_IWQ_SessionDataStorageDb,
                            reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf()));
    return storage;
}

class StorageDbApartmentTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(S_OK, apartment.Setup());
        HRESULT hr = E_FAIL;
        storage = NewModuleStorage(hr);
        ASSERT_EQ(S_OK, hr);
        proxy = apartment.RootForThisThread();
        ASSERT_TRUE(proxy);
        ASSERT_NE(static_cast<IWQ_SessionDataIOEx*>(apartment.Root().Root()), proxy.Get());
    }
    void TearDown() override
    {
        storage.Reset();
        proxy.Reset();
    }
    IWQ_SessionDataStorage* Base() { return storage.Get(); }
    bool AllOnTheRootsThread() const
    {
        for (DWORD thread : apartment.Root().CallThreads())
            if (thread != apartment.ThreadId())
                return false;
        return true;
    }

    RootApartment apartment;
    XComPtr<IWQ_SessionDataStorageDb> storage;
    XComPtr<IWQ_SessionDataIOEx> proxy;
};
} // namespace

TEST_F(StorageDbApartmentTest, SynchronousCallsReachTheRootThroughItsProxy)
{
    ASSERT_EQ(S_OK, storage->SetRoot(proxy.Get()));
    ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(L"app")));
    apartment.Root().SetList(L"app/k", {{L"a", L"1"}});
    apartment.Root().SetSubKeys(L"app/k", {L"app/k/x"});
    apartment.Root().SetAllData({{L"app/k", {{L"a", L"1"}}}});
    EXPECT_EQ(S_OK, StorePairs(Base(), L"k", {{L"n", L"v"}}));
    const PairsResult read = ReadPairs(Base(), L"k");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ((Pairs{{L"a", L"1"}}), read.pairs);
    const NamesResult names = ReadSubKeys(Base(), L"k", 0);
    EXPECT_EQ(S_OK, names.hr);
    EXPECT_EQ(std::vector<std::wstring>{L"k/x"}, names.names);
    const KeyRecordsResult all = ReadAll(Base(), L"k");
    EXPECT_EQ(S_OK, all.hr);
    ASSERT_EQ(1u, all.records.size());
    EXPECT_EQ(L"k", all.records[0].key);
    EXPECT_EQ((std::vector<std::string>{"WriteStringList(app/k|1|n=v)", "GetStringList(app/k)", "GetSubKeys(app/k|0)",
                                        "GetAllData(app/k)"}),
              apartment.Root().Calls());
    EXPECT_TRUE(AllOnTheRootsThread());
}

TEST_F(StorageDbApartmentTest, PipedWritesReachTheRootOfAnotherApartment)
{
    ASSERT_EQ(S_OK, storage->SetRoot(proxy.Get()));
    ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(L"app")));
    ASSERT_EQ(S_OK, storage->SetAsyncWriteMode(120));
    EXPECT_EQ(S_OK, StorePairs(Base(), L"k", {{L"n", L"v"}}));
    EXPECT_EQ(S_OK, storage->DeleteKey(XWQComBSTR(L"old")));
    EXPECT_EQ(S_OK, storage->FlushAsyncStorage());
    EXPECT_EQ((std::vector<std::string>{"WriteStringList(app/k|1|n=v)", "DeleteKey(app/old)"}),
              apartment.Root().Calls());
    EXPECT_TRUE(AllOnTheRootsThread());
}

TEST_F(StorageDbApartmentTest, ReleasingTheStorageRunsPendingWritesOnTheRootOfAnotherApartment)
{
    ASSERT_EQ(S_OK, storage->SetRoot(proxy.Get()));
    ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(L"app")));
    ASSERT_EQ(S_OK, storage->SetAsyncWriteMode(120));
    EXPECT_EQ(S_OK, StorePairs(Base(), L"k", {{L"n", L"v"}}));
    storage.Reset();
    EXPECT_EQ(std::vector<std::string>{"WriteStringList(app/k|1|n=v)"}, apartment.Root().Calls());
}

TEST_F(StorageDbApartmentTest, AStorageInTheRootsOwnApartmentFlushesWithoutBlockingIt)
{
    // A client of the root's apartment: its flush waits for the worker, whose calls come back
    // into this apartment.
    std::vector<HRESULT> results;
    apartment.Run([&] {
        HRESULT hr = E_FAIL;
        XComPtr<IWQ_SessionDataStorageDb> local = NewModuleStorage(hr);
        results.push_back(hr);
        if (!local)
            return;
        results.push_back(local->SetRoot(apartment.Root().Root()));
        results.push_back(local->SetRootKey(XWQComBSTR(L"sta")));
        results.push_back(local->SetAsyncWriteMode(120));
        results.push_back(StorePairs(local.Get(), L"k", {{L"n", L"v"}}));
        results.push_back(local->FlushAsyncStorage());
        results.push_back(ReadSubKeys(local.Get(), L"k", 0).hr);
    });
    EXPECT_EQ((std::vector<HRESULT>{S_OK, S_OK, S_OK, S_OK, S_OK, S_OK, S_FALSE}), results);
    EXPECT_EQ((std::vector<std::string>{"WriteStringList(sta/k|1|n=v)", "GetSubKeys(sta/k|0)"}),
              apartment.Root().Calls());
    EXPECT_TRUE(AllOnTheRootsThread());
}

TEST_F(StorageDbApartmentTest, AProxyRootIsRegisteredThroughAForwarderAndALocalRootAsItIs)
{
    EXPECT_TRUE(XStorageRootRegistration::IsProxy(proxy.Get()));
    const XComPtr<IWQ_SessionDataIOEx> forwarder = XStorageRootRegistration::ForRegistration(proxy.Get());
    ASSERT_TRUE(forwarder);
    EXPECT_NE(proxy.Get(), forwarder.Get());
    EXPECT_FALSE(XStorageRootRegistration::IsProxy(forwarder.Get()));
    // Marshalled by this apartment's standard marshaler, not by the proxy's.
    XComPtr<IMarshal> marshal;
    EXPECT_EQ(E_NOINTERFACE, forwarder.As(marshal));
    XComPtr<IWQ_SessionDataIOExDB> layer;
    EXPECT_EQ(S_OK, forwarder.As(layer));
    // Calls go through to the root.
    tagSESSIONDATAVALUE record{::SysAllocString(L"n"), ::SysAllocString(L"v")};
    EXPECT_EQ(S_OK, forwarder->WriteStringList(XWQComBSTR(L"k"), 1, &record));
    XFreeValueRecords(&record, 1);
    EXPECT_EQ(std::vector<std::string>{"WriteStringList(k|1|n=v)"}, apartment.Root().Calls());

    bool localIsRegisteredItself = false;
    apartment.Run([&] {
        IWQ_SessionDataIOEx* local = apartment.Root().Root();
        localIsRegisteredItself = XStorageRootRegistration::ForRegistration(local).Get() == local;
    });
    EXPECT_TRUE(localIsRegisteredItself);
}
