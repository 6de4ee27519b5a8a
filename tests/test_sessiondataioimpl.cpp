// XSessionDataIOImpl: the cached layer held by value inside another object.
#include "iotesthelpers.h"
#include "xsessiondataio.h"

#include <gtest/gtest.h>

namespace
{
// A stand-in for the object that holds the layer: counts references, answers only IUnknown.
class Holder : public IUnknown
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        queries++;
        *ppv = nullptr;
        if (!::IsEqualIID(iid, IID_IUnknown))
            return E_NOINTERFACE;
        *ppv = this;
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(--refs); }

    LONG refs = 1;
    int queries = 0;
};
} // namespace

TEST(CachedLayerImpl, WithoutHolderServesAsTheCachedLayer)
{
    StorageRef storage;
    XSessionDataIOImpl impl;
    IWQ_SessionDataIO* io = &impl;
    EXPECT_EQ(S_OK, io->SetStorage(storage.Get()));
    EXPECT_EQ(S_FALSE, Read(io, L"k", L"missing").hr);
    EXPECT_EQ(S_FALSE, Read(io, L"k", L"missing").hr);
    EXPECT_EQ(1u, storage->CountCalls("ReadData"));
    EXPECT_EQ(S_OK, io->WriteData(XWQComBSTR(L"K"), XWQComBSTR(L"N"), XWQComBSTR(L"v")));
    EXPECT_EQ(L"v", Read(io, L"k", L"n").value);
    EXPECT_EQ(1u, storage->CountCalls("StoreData"));
    // Its lifetime is its owner's: references are not counted.
    EXPECT_EQ(1u, io->AddRef());
    EXPECT_EQ(1u, io->Release());
    XComPtr<IWQ_SessionDataIO> asked;
    EXPECT_EQ(S_OK, io->QueryInterface(IID_IWQ_SessionDataIO, reinterpret_cast<void**>(asked.ReleaseAndGetAddressOf())));
    EXPECT_EQ(io, asked.Get());
}

TEST(CachedLayerImpl, WithHolderHandsIUnknownToTheHolder)
{
    Holder holder;
    {
        XSessionDataIOImpl impl(&holder);
        IWQ_SessionDataIO* io = &impl;
        io->AddRef();
        EXPECT_EQ(2, holder.refs);
        io->Release();
        EXPECT_EQ(1, holder.refs);
        void* asked = nullptr;
        EXPECT_EQ(E_NOINTERFACE, io->QueryInterface(IID_IWQ_SessionDataIO, &asked));
        EXPECT_EQ(1, holder.queries);
    }
    EXPECT_EQ(1, holder.refs);
}

TEST(CachedLayerImpl, HolderReachesTheHelpersAndTables)
{
    StorageRef storage;
    XSessionDataIOImpl impl;
    impl.SetStorage(storage.Get());
    EXPECT_EQ(S_OK, impl.PutValue(XWQComBSTR(L"K"), XWQComBSTR(L"N"), XWQComBSTR(L"v")));
    ASSERT_NE(nullptr, impl.m_table.Find(L"k"));
    EXPECT_TRUE(impl.m_table.Find(L"k")->value.Find(L"n")->value.dirty);
    EXPECT_EQ(S_OK, impl.SaveValues(XWQComBSTR(L"K"), nullptr));
    EXPECT_FALSE(impl.m_table.Find(L"k")->value.Find(L"n")->value.dirty);
    EXPECT_EQ(std::wstring(L"k/n"), XSessionDataIOImpl::MissingMarker(L"k", L"n"));
    EXPECT_TRUE(impl.m_missingValues.empty());
}
