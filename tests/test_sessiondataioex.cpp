// XSessionDataIOEx: the cached layer for storages with the extended interface, object data and
// key deletion.
#include "iotesthelpers.h"
#include "testenv.h"
#include "xcomtypes.h"
#include "xsessiondataioex.h"

#include <gtest/gtest.h>

namespace
{
XComPtr<IWQ_SessionDataIOEx> NewEx(IWQ_SessionDataStorage* storage = nullptr)
{
    XComPtr<IWQ_SessionDataIOEx> io;
    XComObject<XSessionDataIOEx>::Create(IID_IWQ_SessionDataIOEx, reinterpret_cast<void**>(io.ReleaseAndGetAddressOf()));
    if (io && storage)
        io->SetStorage(storage);
    return io;
}

SDM_STORAGE_TYPE Kind(IWQ_SessionDataIOEx* io)
{
    SDM_STORAGE_TYPE kind = static_cast<SDM_STORAGE_TYPE>(-1);
    EXPECT_EQ(S_OK, io->GetStorageType(&kind));
    return kind;
}

long UserProfile(IWQ_SessionDataIOEx* io)
{
    long flag = -1;
    EXPECT_EQ(S_OK, io->IsUserProfileIO(&flag));
    return flag;
}

void ExpectStorageNotSet(HRESULT hr, const wchar_t* location)
{
    EXPECT_EQ(E_POINTER, hr);
    const ErrorInfoText info = TakeErrorInfo();
    ASSERT_TRUE(info.present);
    EXPECT_NE(std::wstring::npos, info.description.find(L"storage instance not set")) << location;
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataIOEx, info.guid));
}
} // namespace

TEST(ExtendedLayer, StartsUnboundWithKindZeroAndNoUserProfile)
{
    XComPtr<IWQ_SessionDataIOEx> io = NewEx();
    ASSERT_TRUE(io);
    EXPECT_EQ(0, static_cast<int>(Kind(io.Get())));
    EXPECT_EQ(0, UserProfile(io.Get()));
}

TEST(ExtendedLayer, SetStorageNullWhileUnboundIsInvalidArgFromTheInnerLayer)
{
    XComPtr<IWQ_SessionDataIOEx> io = NewEx();
    EXPECT_EQ(E_INVALIDARG, io->SetStorage(nullptr));
    EXPECT_EQ(0, static_cast<int>(Kind(io.Get())));
}

TEST(ExtendedLayer, SetStorageNullOnceBoundReportsStorageIsNull)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    ::SetErrorInfo(0, nullptr);
    EXPECT_EQ(E_INVALIDARG, io->SetStorage(nullptr));
    const ErrorInfoText info = TakeErrorInfo();
    ASSERT_TRUE(info.present);
    EXPECT_NE(std::wstring::npos, info.description.find(L"storage is NULL"));
    // The extended interface is gone: object operations now report the missing storage.
    XWQComBSTR key(L"k");
    ExpectStorageNotSet(io->DeleteObjectKey(nullptr, key), L"DeleteObjectKey");
}

TEST(ExtendedLayer, RegistryStorageIsRefusedButTheCachedLayerStaysBound)
{
    StorageRef storage(RecordingStorage::Pose::Registry);
    storage->SetRecords(L"k", {{L"n", L"from registry"}});
    XComPtr<IWQ_SessionDataIOEx> io = NewEx();
    EXPECT_EQ(E_INVALIDARG, io->SetStorage(storage.Get()));
    const ErrorInfoText info = TakeErrorInfo();
    ASSERT_TRUE(info.present);
    EXPECT_EQ(L"storage does not implement IWQ_SessionDataStorageEx", info.description);
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataIOEx, info.guid));

    const ReadResult read = Read(io.Get(), L"k", L"n");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(L"from registry", read.value);
    EXPECT_EQ(1u, storage->CountCalls("ReadData(k)"));
    // Neither the kind was taken nor can object operations reach the storage.
    EXPECT_EQ(0, static_cast<int>(Kind(io.Get())));
    XWQComBSTR key(L"k");
    ExpectStorageNotSet(io->DeleteKey(key), L"DeleteKey");
    EXPECT_EQ(0u, storage->CountCalls("DeleteKey"));
}

TEST(ExtendedLayer, ExtendedStorageWithoutDatabaseInterfaceIsKindOne)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx();
    EXPECT_EQ(S_OK, io->SetStorage(storage.Get()));
    EXPECT_EQ(1, static_cast<int>(Kind(io.Get())));
    EXPECT_EQ(0, UserProfile(io.Get()));
}

TEST(ExtendedLayer, DatabaseStorageIsKindThree)
{
    StorageRef storage(RecordingStorage::Pose::Database);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx();
    EXPECT_EQ(S_OK, io->SetStorage(storage.Get()));
    EXPECT_EQ(3, static_cast<int>(Kind(io.Get())));
    EXPECT_EQ(0, UserProfile(io.Get()));
}

TEST(ExtendedLayer, UserProfileDatabaseStorageMakesAUserProfileIO)
{
    StorageRef storage(RecordingStorage::Pose::Database);
    storage->SetUserProfile(1);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx();
    EXPECT_EQ(S_OK, io->SetStorage(storage.Get()));
    EXPECT_EQ(1, UserProfile(io.Get()));
}

TEST(ExtendedLayer, UserProfileFlagNeedsASuccessfulAnswer)
{
    StorageRef storage(RecordingStorage::Pose::Database);
    storage->SetUserProfile(1, S_FALSE);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx();
    EXPECT_EQ(S_OK, io->SetStorage(storage.Get()));
    EXPECT_EQ(0, UserProfile(io.Get()));
}

TEST(ExtendedLayer, SetUserProfileIOCanOnlySwitchOn)
{
    XComPtr<IWQ_SessionDataIOEx> io = NewEx();
    EXPECT_EQ(S_OK, io->SetUserProfileIO());
    EXPECT_EQ(1, UserProfile(io.Get()));
    EXPECT_EQ(S_OK, io->SetUserProfileIO());
    EXPECT_EQ(1, UserProfile(io.Get()));
}

TEST(ExtendedLayer, FlushAsyncStorageUnboundReportsWhereasFlushCacheWorks)
{
    XComPtr<IWQ_SessionDataIOEx> io = NewEx();
    ExpectStorageNotSet(io->FlushAsyncStorage(), L"FlushAsyncStorage");
    EXPECT_EQ(S_OK, io->FlushCache(static_cast<SESSIONDATATYPE>(0)));
}

TEST(ExtendedLayer, AsyncOperationsBypassTheInnerLayer)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    storage->SetAsyncError(E_ACCESSDENIED);
    storage->SetResult("FlushAsyncStorage", E_ABORT);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    EXPECT_EQ(E_ABORT, io->FlushAsyncStorage());
    HRESULT async = S_OK;
    EXPECT_EQ(S_OK, io->GetLastErrorAsyncExecution(&async));
    EXPECT_EQ(E_ACCESSDENIED, async);
    EXPECT_EQ(1u, storage->CountCalls("FlushAsyncStorage()"));
    EXPECT_EQ(1u, storage->CountCalls("GetLastErrorAsyncExecution()"));
}

TEST(ExtendedLayer, GetLastErrorAsyncExecutionUnboundIsReportedUnderTheFlushName)
{
    XComPtr<IWQ_SessionDataIOEx> io = NewEx();
    HRESULT async = S_OK;
    EXPECT_EQ(E_POINTER, io->GetLastErrorAsyncExecution(&async));
    bool found = false;
    for (const std::string& line : ReadLogBook())
        found = found || line.find("XSessionDataIOEx::FlushAsyncStorage") != std::string::npos;
    EXPECT_TRUE(found);
}

TEST(ExtendedLayer, EveryObjectOperationUnboundReportsStorageNotSet)
{
    XComPtr<IWQ_SessionDataIOEx> io = NewEx();
    XWQComBSTR key(L"k"), name(L"n"), value(L"v");
    ULONG count = 0;
    tagSESSIONDATAVALUE* list = nullptr;
    BSTR* names = nullptr;
    BSTR answer = nullptr;
    ExpectStorageNotSet(io->WriteObjectData(nullptr, key, name, value), L"WriteObjectData");
    ExpectStorageNotSet(io->GetObjectData(nullptr, key, name, &answer), L"GetObjectData");
    ExpectStorageNotSet(io->GetObjectStringList(nullptr, key, &count, &list), L"GetObjectStringList");
    ExpectStorageNotSet(io->WriteObjectStringList(nullptr, key, 0, nullptr), L"WriteObjectStringList");
    ExpectStorageNotSet(io->GetObjectSubKeys(nullptr, key, 0, &count, &names), L"GetObjectSubKeys");
    ExpectStorageNotSet(io->DeleteObjectKey(nullptr, key), L"DeleteObjectKey");
    ExpectStorageNotSet(io->DeleteKey(key), L"DeleteKey");
    EXPECT_EQ(nullptr, answer);
}

TEST(ExtendedLayer, PointerChecksComeBeforeTheStorageCheck)
{
    ClearLogBook();
    XComPtr<IWQ_SessionDataIOEx> io = NewEx();
    XWQComBSTR key(L"k"), name(L"n");
    ULONG count = 0;
    tagSESSIONDATAVALUE* list = nullptr;
    BSTR* names = nullptr;
    const struct
    {
        HRESULT hr;
    } results[] = {
        {io->GetObjectData(nullptr, key, name, nullptr)},
        {io->GetObjectStringList(nullptr, key, nullptr, &list)},
        {io->GetObjectStringList(nullptr, key, &count, nullptr)},
        {io->GetObjectSubKeys(nullptr, key, 0, nullptr, &names)},
        {io->GetObjectSubKeys(nullptr, key, 0, &count, nullptr)},
    };
    for (const auto& r : results)
        EXPECT_EQ(E_POINTER, r.hr);
    // None of them got as far as the storage check.
    for (const std::string& line : ReadLogBook())
        EXPECT_EQ(std::string::npos, line.find("storage instance not set")) << line;
}

TEST(ExtendedLayer, WriteObjectDataPassesObjectKeyAndRecordUnchanged)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    StorageRef object;  // any COM object serves as the client's object
    IUnknown* identity = object.Get();
    identity->AddRef();
    const ULONG refs = identity->Release();
    EXPECT_EQ(S_OK, io->WriteObjectData(identity, XWQComBSTR(L"Win\\Main"), XWQComBSTR(L"Left"), XWQComBSTR(L"10")));
    EXPECT_EQ(1u, storage->CountCalls("StoreObjectData(Win\\Main|Left=10)"));
    ASSERT_EQ(1u, storage->Objects().size());
    EXPECT_EQ(identity, storage->Objects()[0]);
    identity->AddRef();
    EXPECT_EQ(refs, identity->Release());  // no reference was kept
    // Object data bypasses the cache.
    EXPECT_EQ(0u, storage->CountCalls("StoreData"));
}

TEST(ExtendedLayer, WriteObjectStringListPassesTheArray)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    storage->SetResult("StoreObjectData", E_ACCESSDENIED);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    ValueRecords records{{L"A", L"1"}, {L"b", L"2"}};
    EXPECT_EQ(E_ACCESSDENIED, io->WriteObjectStringList(nullptr, XWQComBSTR(L"k"), records.Count(), records.Data()));
    EXPECT_EQ(1u, storage->CountCalls("StoreObjectData(k|A=1;b=2)"));
}

TEST(ExtendedLayer, GetObjectDataFindsTheLowerCasedName)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    storage->SetObjectRecords(L"k", {{L"left", L"10"}, {L"top", L"20"}});
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    BSTR value = nullptr;
    EXPECT_EQ(S_OK, io->GetObjectData(nullptr, XWQComBSTR(L"k"), XWQComBSTR(L"TOP"), &value));
    EXPECT_STREQ(L"20", value);
    ::SysFreeString(value);
}

TEST(ExtendedLayer, GetObjectDataOfAMissingNameIsFalseAndLeavesTheOutValue)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    storage->SetObjectRecords(L"k", {{L"left", L"10"}});
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    BSTR marker = reinterpret_cast<BSTR>(static_cast<uintptr_t>(0x1234));
    BSTR value = marker;
    EXPECT_EQ(S_FALSE, io->GetObjectData(nullptr, XWQComBSTR(L"k"), XWQComBSTR(L"width"), &value));
    EXPECT_EQ(marker, value);
}

TEST(ExtendedLayer, GetObjectDataNeverMatchesANameNotLowerCased)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    storage->SetObjectRecords(L"k", {{L"Left", L"10"}});
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    BSTR value = nullptr;
    EXPECT_EQ(S_FALSE, io->GetObjectData(nullptr, XWQComBSTR(L"k"), XWQComBSTR(L"Left"), &value));
    EXPECT_EQ(nullptr, value);
}

TEST(ExtendedLayer, GetObjectDataFrontMostMatchWins)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    storage->SetObjectRecords(L"k", {{L"n", L"front"}, {L"other", L"x"}, {L"n", L"back"}});
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    BSTR value = nullptr;
    EXPECT_EQ(S_OK, io->GetObjectData(nullptr, XWQComBSTR(L"k"), XWQComBSTR(L"n"), &value));
    EXPECT_STREQ(L"front", value);
    ::SysFreeString(value);
}

TEST(ExtendedLayer, GetObjectDataReturnsAFailedOrEmptyReadAsItIs)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    BSTR value = nullptr;
    EXPECT_EQ(S_FALSE, io->GetObjectData(nullptr, XWQComBSTR(L"none"), XWQComBSTR(L"n"), &value));
    storage->SetResult("ReadObjectData", E_ACCESSDENIED);
    EXPECT_EQ(E_ACCESSDENIED, io->GetObjectData(nullptr, XWQComBSTR(L"k"), XWQComBSTR(L"n"), &value));
    EXPECT_EQ(nullptr, value);
}

TEST(ExtendedLayer, GetObjectStringListHandsTheStorageArraysOn)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    storage->SetObjectRecords(L"k", {{L"a", L"1"}, {L"b", L"2"}});
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    XValueArray list;
    EXPECT_EQ(S_OK, io->GetObjectStringList(nullptr, XWQComBSTR(L"k"), list.CountAddress(), list.ItemsAddress()));
    ASSERT_EQ(2u, list.Count());
    EXPECT_EQ("a=1", RecordText(list.Items()[0]));
    EXPECT_EQ("b=2", RecordText(list.Items()[1]));
}

TEST(ExtendedLayer, GetObjectSubKeysAndDeleteObjectKeyAreForwarded)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    storage->SetSubKeys(L"k", {L"k/a", L"k/b"});
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    XBstrArray names;
    EXPECT_EQ(S_OK, io->GetObjectSubKeys(nullptr, XWQComBSTR(L"k"), 1, names.CountAddress(), names.ItemsAddress()));
    EXPECT_EQ(2u, names.Count());
    EXPECT_EQ(1u, storage->CountCalls("GetObjectSubKeys(k|1)"));
    storage->SetResult("DeleteObjectKey", E_ACCESSDENIED);
    EXPECT_EQ(E_ACCESSDENIED, io->DeleteObjectKey(nullptr, XWQComBSTR(L"k")));
    EXPECT_EQ(1u, storage->CountCalls("DeleteObjectKey(k)"));
}

TEST(ExtendedLayer, SaveDataDoesNothing)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    ASSERT_EQ(S_OK, Write(io.Get(), L"k", L"n", L"v"));
    storage->ClearCalls();
    EXPECT_EQ(S_OK, io->SaveData(XWQComBSTR(L"k"), XWQComBSTR(L"n")));
    EXPECT_TRUE(storage->Calls().empty());
}

TEST(ExtendedLayer, PlainOperationsGoThroughTheCache)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    ASSERT_EQ(S_OK, Write(io.Get(), L"K", L"N", L"v"));
    EXPECT_EQ(1u, storage->CountCalls("StoreData(K|1|n=v)"));
    EXPECT_EQ(L"v", Read(io.Get(), L"k", L"n").value);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"missing").hr);
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"missing").hr);
    EXPECT_EQ(1u, storage->CountCalls("ReadData"));
    EXPECT_EQ(S_OK, io->FlushCache(static_cast<SESSIONDATATYPE>(0)));
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"k", L"n").hr);
    EXPECT_EQ(2u, storage->CountCalls("ReadData"));
}

TEST(ExtendedLayer, DeleteKeyForgetsCachedKeysAndMarkersByPrefix)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    ASSERT_EQ(S_OK, Write(io.Get(), L"a/b", L"n", L"1"));
    ASSERT_EQ(S_OK, Write(io.Get(), L"a/b/c", L"n", L"2"));
    ASSERT_EQ(S_OK, Write(io.Get(), L"a/other", L"n", L"3"));
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"a/b", L"x").hr);  // marks a/b/x missing
    storage->ClearCalls();

    EXPECT_EQ(S_OK, io->DeleteKey(XWQComBSTR(L"A\\B")));
    EXPECT_EQ(1u, storage->CountCalls("DeleteKey(A\\B)"));  // the key goes on unchanged

    // The marker a/b/x was forgotten: the storage is asked again.
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"a/b", L"x").hr);
    EXPECT_EQ(1u, storage->CountCalls("ReadData(a/b)"));
    // a/b and a/b/c were forgotten (read again); a/other is still cached.
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"a/b/c", L"n").hr);
    EXPECT_EQ(1u, storage->CountCalls("ReadData(a/b/c)"));
    EXPECT_EQ(L"3", Read(io.Get(), L"a/other", L"n").value);
    EXPECT_EQ(0u, storage->CountCalls("ReadData(a/other)"));
}

TEST(ExtendedLayer, DeleteKeyForgetsTheCachedValuesOfTheKey)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    ASSERT_EQ(S_OK, Write(io.Get(), L"a/b", L"n", L"1"));
    storage->ClearCalls();
    EXPECT_EQ(S_OK, io->DeleteKey(XWQComBSTR(L"A\\B")));
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"a/b", L"n").hr);
    EXPECT_EQ(1u, storage->CountCalls("ReadData(a/b)"));
}

TEST(ExtendedLayer, DeleteKeyIsAPlainPrefixTest)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    ASSERT_EQ(S_OK, Write(io.Get(), L"a/bc", L"n", L"1"));
    storage->ClearCalls();
    EXPECT_EQ(S_OK, io->DeleteKey(XWQComBSTR(L"a/b")));
    EXPECT_EQ(S_FALSE, Read(io.Get(), L"a/bc", L"n").hr);
    EXPECT_EQ(1u, storage->CountCalls("ReadData(a/bc)"));
}

TEST(ExtendedLayer, DeleteKeyDoesNotMatchCachedKeysWithBackslashes)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    ASSERT_EQ(S_OK, Write(io.Get(), L"a\\b", L"n", L"1"));
    storage->ClearCalls();
    EXPECT_EQ(S_OK, io->DeleteKey(XWQComBSTR(L"a\\b")));
    EXPECT_EQ(L"1", Read(io.Get(), L"a\\b", L"n").value);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
}

TEST(ExtendedLayer, DeleteKeyWithAnEmptyKeyForgetsNothing)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    XComPtr<IWQ_SessionDataIOEx> io = NewEx(storage.Get());
    ASSERT_EQ(S_OK, Write(io.Get(), L"a", L"n", L"1"));
    storage->ClearCalls();
    storage->SetResult("DeleteKey", E_ACCESSDENIED);
    EXPECT_EQ(E_ACCESSDENIED, io->DeleteKey(XWQComBSTR(L"")));
    EXPECT_EQ(1u, storage->CountCalls("DeleteKey("));
    EXPECT_EQ(L"1", Read(io.Get(), L"a", L"n").value);
    EXPECT_EQ(0u, storage->CountCalls("ReadData"));
}

TEST(ExtendedLayer, AnswersItsInterfacesAndErrorInfoSupport)
{
    XComPtr<IWQ_SessionDataIOEx> io = NewEx();
    XComPtr<IWQ_SessionDataIO> plain;
    EXPECT_EQ(S_OK, io->QueryInterface(IID_IWQ_SessionDataIO, reinterpret_cast<void**>(plain.ReleaseAndGetAddressOf())));
    XComPtr<ISupportErrorInfo> support;
    ASSERT_EQ(S_OK, io->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(support.ReleaseAndGetAddressOf())));
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataIOEx));
    EXPECT_EQ(S_FALSE, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataMng));
    XComPtr<IWQ_SessionDataIOExDB> database;
    EXPECT_EQ(E_NOINTERFACE,
              io->QueryInterface(IID_IWQ_SessionDataIOExDB, reinterpret_cast<void**>(database.ReleaseAndGetAddressOf())));
}
