// The manager over storages with the extended interface, with the registered module: SetStorage
// with caching binds the extended IO class, which carries key deletion, object data and the
// user-profile mode.
#include "iotesthelpers.h"
#include "moduletest.h"
#include "xcomtypes.h"

#include <gtest/gtest.h>

namespace
{
// The manager routes on the category value as passed; its all-categories read walks 5 to 1.
const SESSIONDATATYPE kGlobal = static_cast<SESSIONDATATYPE>(1);
const SESSIONDATATYPE kUserDb = static_cast<SESSIONDATATYPE>(2);

XComPtr<IWQ_SessionDataMng> NewManager()
{
    CLSID clsid;
    EXPECT_EQ(S_OK, ::CLSIDFromProgID(L"WQSessionDataMng.WQSessionDataMng", &clsid));
    XComPtr<IWQ_SessionDataMng> manager;
    EXPECT_EQ(S_OK, ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IWQ_SessionDataMng,
                                       reinterpret_cast<void**>(manager.ReleaseAndGetAddressOf())));
    return manager;
}

HRESULT WriteText(IWQ_SessionDataMng* manager, const wchar_t* key, const wchar_t* name, const wchar_t* text,
                  SESSIONDATATYPE category)
{
    XVariant value;
    value.Get().vt = VT_BSTR;
    value.Get().bstrVal = ::SysAllocString(text);
    return manager->WriteData(XWQComBSTR(key), XWQComBSTR(name), value.Get(), category);
}

int StorageKind(IWQ_SessionDataMng* manager, SESSIONDATATYPE category)
{
    SDM_STORAGE_TYPE kind = static_cast<SDM_STORAGE_TYPE>(-1);
    EXPECT_EQ(S_OK, manager->GetStorageType(category, &kind));
    return static_cast<int>(kind);
}
} // namespace

TEST(ManagerExtended, SetStorageWithCachingOverAnExtendedStorageBindsTheExtendedIO)
{
    XComPtr<IWQ_SessionDataMng> manager = NewManager();
    StorageRef storage(RecordingStorage::Pose::Extended);
    ASSERT_EQ(S_OK, manager->SetStorage(storage.Get(), kGlobal, 1));
    EXPECT_EQ(1, StorageKind(manager.Get(), kGlobal));
    // Only the extended IO answers IWQ_SessionDataIOEx, which the manager asks for: the key
    // deletion and the object data reach the storage.
    EXPECT_EQ(S_OK, manager->DeleteKey(XWQComBSTR(L"a\\b"), kGlobal));
    EXPECT_EQ(1u, storage->CountCalls("DeleteKey(a\\b)"));
    StorageRef object;
    XVariant value;
    value.Get().vt = VT_BSTR;
    value.Get().bstrVal = ::SysAllocString(L"v");
    EXPECT_EQ(S_OK, manager->WriteObjectData(object.Get(), XWQComBSTR(L"k"), XWQComBSTR(L"n"), value.Get(), kGlobal));
    EXPECT_EQ(1u, storage->CountCalls("StoreObjectData(k|"));
    ASSERT_EQ(1u, storage->Objects().size());
    EXPECT_EQ(static_cast<IUnknown*>(object.Get()), storage->Objects()[0]);
    // And it caches: a second read of a written value costs no storage call.
    ASSERT_EQ(S_OK, WriteText(manager.Get(), L"k", L"n", L"v", kGlobal));
    XVariant read;
    EXPECT_EQ(S_OK, manager->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), VT_BSTR, &read.Get(), kGlobal));
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
}

TEST(ManagerExtended, WithoutCachingAnExtendedStorageGetsAPlainLayer)
{
    XComPtr<IWQ_SessionDataMng> manager = NewManager();
    StorageRef storage(RecordingStorage::Pose::Extended);
    ASSERT_EQ(S_OK, manager->SetStorage(storage.Get(), kGlobal, 0));
    EXPECT_EQ(S_FALSE, manager->DeleteKey(XWQComBSTR(L"k"), kGlobal));
    EXPECT_EQ(0u, storage->CountCalls("DeleteKey"));
}

TEST(ManagerExtended, DeleteKeyMakesTheCacheForgetTheKey)
{
    XComPtr<IWQ_SessionDataMng> manager = NewManager();
    StorageRef storage(RecordingStorage::Pose::Extended);
    ASSERT_EQ(S_OK, manager->SetStorage(storage.Get(), kGlobal, 1));
    ASSERT_EQ(S_OK, WriteText(manager.Get(), L"app/win", L"left", L"10", kGlobal));
    EXPECT_EQ(S_OK, manager->DeleteKey(XWQComBSTR(L"App\\Win"), kGlobal));
    XVariant read;
    EXPECT_EQ(S_FALSE, manager->GetData(XWQComBSTR(L"app/win"), XWQComBSTR(L"left"), VT_BSTR, &read.Get(), kGlobal));
    EXPECT_EQ(1u, storage->CountCalls("ReadData(app/win)"));
}

TEST(ManagerExtended, AllCategoriesReadSkipsAnExtendedIOThatIsNotUserProfile)
{
    XComPtr<IWQ_SessionDataMng> manager = NewManager();
    StorageRef storage(RecordingStorage::Pose::Database);
    storage->SetRecords(L"k", {{L"n", L"from db"}});
    ASSERT_EQ(S_OK, manager->SetStorage(storage.Get(), kUserDb, 1));
    XVariant read;
    EXPECT_EQ(S_FALSE, manager->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), VT_BSTR, &read.Get(),
                                        static_cast<SESSIONDATATYPE>(0)));
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
    // The category itself answers (through the storage, since nothing was cached).
    EXPECT_EQ(S_OK, manager->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), VT_BSTR, &read.Get(), kUserDb));
    EXPECT_EQ(1u, storage->CountCalls("ReadData(k)"));
}

TEST(ManagerExtended, AllCategoriesReadAsksAUserProfileExtendedIO)
{
    XComPtr<IWQ_SessionDataMng> manager = NewManager();
    StorageRef storage(RecordingStorage::Pose::Database);
    storage->SetUserProfile(1);
    storage->SetRecords(L"k", {{L"n", L"from db"}});
    ASSERT_EQ(S_OK, manager->SetStorage(storage.Get(), kUserDb, 1));
    EXPECT_EQ(3, StorageKind(manager.Get(), kUserDb));
    XVariant read;
    EXPECT_EQ(S_OK, manager->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), VT_BSTR, &read.Get(),
                                     static_cast<SESSIONDATATYPE>(0)));
    ASSERT_EQ(VT_BSTR, read.Get().vt);
    EXPECT_STREQ(L"from db", read.Get().bstrVal);
}

TEST(ManagerExtended, ExtendedAndDatabaseLayersAreCreatableByProgId)
{
    for (const wchar_t* progId : {L"WQSessionDataMng.SessionDataIOEx", L"WQSessionDataMng.SessionDataIOEx.1",
                                  L"WQSessionDataMng.WQ_SessionDataIOExDB", L"WQSessionDataMng.WQ_SessionDataIOExDB.1"})
    {
        CLSID clsid;
        ASSERT_EQ(S_OK, ::CLSIDFromProgID(progId, &clsid));
        XComPtr<IWQ_SessionDataIOEx> io;
        EXPECT_EQ(S_OK, ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IWQ_SessionDataIOEx,
                                           reinterpret_cast<void**>(io.ReleaseAndGetAddressOf())));
        EXPECT_TRUE(io);
    }
}

TEST(ManagerExtended, ASetStorageWhoseNewIORefusesTheStorageLeavesTheCategoryUnbound)
{
    XComPtr<IWQ_SessionDataMng> manager = NewManager();
    StorageRef earlier(RecordingStorage::Pose::Volatile);
    ASSERT_EQ(S_OK, manager->SetStorage(earlier.Get(), kGlobal, 1));
    // The manager's probe finds the extended interface; the extended IO it makes does not.
    StorageRef storage(RecordingStorage::Pose::Extended);
    storage->LimitExtendedAnswers(1);
    EXPECT_EQ(E_INVALIDARG, manager->SetStorage(storage.Get(), kGlobal, 1));
    // The earlier binding is gone as well.
    EXPECT_EQ(S_FALSE, manager->IsInit(kGlobal));
}
