// Binding the delegator to its storage root: calls to a root in a single-threaded apartment
// cross the proxy to that apartment's thread, also when the delegator lives in that apartment
// and flushes there; a second root gets only the calls piped after it was set.
#include "delegatortesthelpers.h"
#include "statthread.h"
#include "testenv.h"

#include <gtest/gtest.h>

using namespace DelegatorTest;

TEST(AsyncDelegatorRoot, CallsToAnStaRootRunOnTheApartmentThread)
{
    StaThread sta;
    ASSERT_EQ(S_OK, sta.Setup());
    {
        XAsyncStorageDelegator delegator;
        XComPtr<IWQ_SessionDataIOEx> proxy = sta.RootForThisThread();
        ASSERT_TRUE(proxy);
        delegator.SetStorageRoot(proxy.Get());
        delegator.SetWriteInterval(120);
        PipeWrite(delegator, L"a", L"n", L"1");
        PipeDelete(delegator, L"b");
        delegator.FlushStorageCallPipe();
    }
    const auto calls = sta.Root().Calls();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(L"W a n=1", calls[0].text);
    EXPECT_EQ(L"D b", calls[1].text);
    EXPECT_EQ(sta.ThreadId(), calls[0].thread);
    EXPECT_EQ(sta.ThreadId(), calls[1].thread);
}

TEST(AsyncDelegatorRoot, DelegatorInTheRootsApartmentFlushesWhileServingTheWorker)
{
    StaThread sta;
    ASSERT_EQ(S_OK, sta.Setup());
    HRESULT flushed = E_UNEXPECTED;
    HRESULT terminated = E_UNEXPECTED;
    sta.Run([&](IWQ_SessionDataIOEx* root) {
        XAsyncStorageDelegator delegator;
        delegator.SetStorageRoot(root);
        delegator.SetWriteInterval(120);
        for (int i = 0; i < 10; ++i)
            PipeWrite(delegator, L"k", L"n", std::to_wstring(i));
        flushed = FailureOf([&] { delegator.FlushStorageCallPipe(); }).hr;
        PipeDelete(delegator, L"k");
        terminated = delegator.Terminate();
    });
    EXPECT_EQ(S_OK, flushed);
    EXPECT_EQ(S_OK, terminated);
    const auto calls = sta.Root().Calls();
    ASSERT_EQ(11u, calls.size());
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(L"W k n=" + std::to_wstring(i), calls[i].text);
    EXPECT_EQ(L"D k", calls[10].text);
    for (const auto& call : calls)
        EXPECT_EQ(sta.ThreadId(), call.thread);
}

TEST(AsyncDelegatorRoot, FailureOfAnStaRootIsRetained)
{
    StaThread sta;
    ASSERT_EQ(S_OK, sta.Setup());
    sta.Root().FailKey(L"b", E_FAIL, L"refused in the apartment");
    XAsyncStorageDelegator delegator;
    delegator.SetStorageRoot(sta.RootForThisThread().Get());
    delegator.SetWriteInterval(120);
    PipeDelete(delegator, L"a");
    PipeDelete(delegator, L"b");
    PipeDelete(delegator, L"c");
    EXPECT_EQ(E_FAIL, FailureOf([&] { delegator.FlushStorageCallPipe(); }).hr);
    EXPECT_EQ((std::vector<std::wstring>{L"D a", L"D b", L"D c"}), sta.Root().Texts());
    EXPECT_EQ(S_OK, FailureOf([&] { delegator.Terminate(); }).hr);
}

TEST(AsyncDelegatorRoot, SecondRootGetsOnlyTheCallsPipedAfterIt)
{
    XComPtr<FakeStorageRoot> first, second;
    first.Attach(FakeStorageRoot::Create());
    second.Attach(FakeStorageRoot::Create());
    XAsyncStorageDelegator delegator;
    delegator.SetStorageRoot(first.Get());
    delegator.SetWriteInterval(120);
    PipeWrite(delegator, L"a", L"n", L"1");
    PipeDelete(delegator, L"b");

    delegator.SetStorageRoot(second.Get());
    EXPECT_EQ((std::vector<std::wstring>{L"W a n=1", L"D b"}), first->Texts());  // flushed to the old root

    PipeDelete(delegator, L"c");
    delegator.FlushStorageCallPipe();
    EXPECT_EQ(2u, first->CallCount());
    EXPECT_EQ(std::vector<std::wstring>{L"D c"}, second->Texts());
}

TEST(AsyncDelegatorRoot, SecondRootBeforeTheWorkerStartsTakesTheCalls)
{
    XComPtr<FakeStorageRoot> first, second;
    first.Attach(FakeStorageRoot::Create());
    second.Attach(FakeStorageRoot::Create());
    XAsyncStorageDelegator delegator;
    delegator.SetStorageRoot(first.Get());
    PipeDelete(delegator, L"a");
    delegator.SetStorageRoot(second.Get());  // no worker yet: nothing to flush
    delegator.SetWriteInterval(120);
    delegator.FlushStorageCallPipe();
    EXPECT_EQ(0u, first->CallCount());
    EXPECT_EQ(std::vector<std::wstring>{L"D a"}, second->Texts());
}

TEST(AsyncDelegatorRoot, NullRootIsRefused)
{
    XAsyncStorageDelegator delegator;
    EXPECT_EQ(E_POINTER, FailureOf([&] { delegator.SetStorageRoot(nullptr); }).hr);
}

TEST(AsyncDelegatorRoot, DelegatorReleasesEveryReferenceToTheRoot)
{
    XComPtr<FakeStorageRoot> root;
    root.Attach(FakeStorageRoot::Create());
    {
        XAsyncStorageDelegator delegator;
        delegator.SetStorageRoot(root.Get());
        delegator.SetWriteInterval(120);
        PipeDelete(delegator, L"a");
        delegator.FlushStorageCallPipe();
    }
    root->AddRef();
    EXPECT_EQ(1u, root->Release());
}

namespace
{
// A root that refuses to be marshalled: its custom marshaller fails.
class UnmarshallableRoot : public FakeStorageRoot, public IMarshal
{
public:
    static constexpr HRESULT kRefused = static_cast<HRESULT>(0x80041234);
    HRESULT InternalQueryInterface(REFIID iid, void** ppv)
    {
        if (::IsEqualIID(iid, IID_IMarshal))
        {
            *ppv = static_cast<IMarshal*>(this);
            static_cast<IWQ_SessionDataIOEx*>(this)->AddRef();
            return S_OK;
        }
        return FakeStorageRoot::InternalQueryInterface(iid, ppv);
    }
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        return static_cast<IWQ_SessionDataIOEx*>(this)->QueryInterface(iid, ppv);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<IWQ_SessionDataIOEx*>(this)->AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<IWQ_SessionDataIOEx*>(this)->Release(); }
    STDMETHODIMP GetUnmarshalClass(REFIID, void*, DWORD, void*, DWORD, CLSID*) override { return kRefused; }
    STDMETHODIMP GetMarshalSizeMax(REFIID, void*, DWORD, void*, DWORD, DWORD*) override { return kRefused; }
    STDMETHODIMP MarshalInterface(IStream*, REFIID, void*, DWORD, void*, DWORD) override { return kRefused; }
    STDMETHODIMP UnmarshalInterface(IStream*, REFIID, void**) override { return kRefused; }
    STDMETHODIMP ReleaseMarshalData(IStream*) override { return kRefused; }
    STDMETHODIMP DisconnectObject(DWORD) override { return kRefused; }
};
} // namespace

TEST(AsyncDelegatorRoot, RegistrationFailureIsReportedWithItsResult)
{
    XComPtr<IWQ_SessionDataIOEx> root;
    root.Attach(new XComObject<UnmarshallableRoot>());
    root->AddRef();
    XAsyncStorageDelegator delegator;
    const Failure failure = FailureOf([&] { delegator.SetStorageRoot(root.Get()); });
    EXPECT_EQ(UnmarshallableRoot::kRefused, failure.hr);
    EXPECT_EQ(L"RegisterInterfaceInGlobal IWQ_SessionDataIOEx failed", failure.message);
    // Nothing was registered: piping finds no root.
    EXPECT_EQ(L"storage root instance for async call not set",
              FailureOf([&] { PipeDelete(delegator, L"a"); }).message);
}
