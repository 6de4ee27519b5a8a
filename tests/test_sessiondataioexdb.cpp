// XSessionDataIOExDB: forwarding to a storage root, and the one connection error without it.
// The root here is an extended layer over a recording storage, as deployed.
#include "iotesthelpers.h"
#include "testenv.h"
#include "xcomtypes.h"
#include "xsessiondataioex.h"
#include "xsessiondataioexdb.h"

#include <gtest/gtest.h>

#include <functional>

namespace
{
// The database layer over a root that is an extended layer over storage.
struct Chain
{
    explicit Chain(RecordingStorage::Pose pose = RecordingStorage::Pose::Extended) : storage(pose)
    {
        root = NewObject<XSessionDataIOEx, IWQ_SessionDataIOEx>();
        root->SetStorage(storage.Get());
        io = NewObject<XSessionDataIOExDB, IWQ_SessionDataIOExDB>();
        io->SetRoot(root.Get());
        storage->ClearCalls();
    }
    StorageRef storage;
    XComPtr<IWQ_SessionDataIOEx> root;
    XComPtr<IWQ_SessionDataIOExDB> io;
};

bool LogHas(const std::string& text)
{
    for (const std::string& line : ReadLogBook())
        if (line.find(text) != std::string::npos)
            return true;
    return false;
}

struct Forwarded
{
    const char* name;
    unsigned line;
    std::function<HRESULT(IWQ_SessionDataIOExDB*)> call;
};

// Every forwarded operation with throw-away arguments (nothing is written without a root).
std::vector<Forwarded> ForwardedOperations()
{
    static XWQComBSTR key(L"k"), name(L"n"), value(L"v");
    static ULONG count;
    static tagSESSIONDATAVALUE* list;
    static tagKEY_SESSIONDATAVALUE* all;
    static BSTR* names;
    static BSTR answer;
    static HRESULT async;
    static SDM_STORAGE_TYPE kind;
    return {
        {"WriteData", 83, [](IWQ_SessionDataIOExDB* io) { return io->WriteData(key, name, value); }},
        {"GetData", 95, [](IWQ_SessionDataIOExDB* io) { return io->GetData(key, name, &answer); }},
        {"GetStringList", 69, [](IWQ_SessionDataIOExDB* io) { return io->GetStringList(key, &count, &list); }},
        {"WriteStringList", 57, [](IWQ_SessionDataIOExDB* io) { return io->WriteStringList(key, 0, nullptr); }},
        {"GetSubKeys", 107, [](IWQ_SessionDataIOExDB* io) { return io->GetSubKeys(key, 0, &count, &names); }},
        {"FlushCache", 128, [](IWQ_SessionDataIOExDB* io) { return io->FlushCache(static_cast<SESSIONDATATYPE>(0)); }},
        {"FlushAsyncStorage", 141, [](IWQ_SessionDataIOExDB* io) { return io->FlushAsyncStorage(); }},
        {"GetLastErrorAsyncExecution", 155,
         [](IWQ_SessionDataIOExDB* io) { return io->GetLastErrorAsyncExecution(&async); }},
        {"UploadCache", 174, [](IWQ_SessionDataIOExDB* io) { return io->UploadCache(key); }},
        {"GetAllData", 186, [](IWQ_SessionDataIOExDB* io) { return io->GetAllData(key, &count, &all); }},
        {"GetStorageType", 44, [](IWQ_SessionDataIOExDB* io) { return io->GetStorageType(&kind); }},
        {"WriteObjectData", 196,
         [](IWQ_SessionDataIOExDB* io) { return io->WriteObjectData(nullptr, key, name, value); }},
        {"GetObjectData", 206, [](IWQ_SessionDataIOExDB* io) { return io->GetObjectData(nullptr, key, name, &answer); }},
        {"GetObjectStringList", 216,
         [](IWQ_SessionDataIOExDB* io) { return io->GetObjectStringList(nullptr, key, &count, &list); }},
        {"WriteObjectStringList", 226,
         [](IWQ_SessionDataIOExDB* io) { return io->WriteObjectStringList(nullptr, key, 0, nullptr); }},
        {"GetObjectSubKeys", 236,
         [](IWQ_SessionDataIOExDB* io) { return io->GetObjectSubKeys(nullptr, key, 0, &count, &names); }},
        {"DeleteObjectKey", 246, [](IWQ_SessionDataIOExDB* io) { return io->DeleteObjectKey(nullptr, key); }},
        {"DeleteKey", 256, [](IWQ_SessionDataIOExDB* io) { return io->DeleteKey(key); }},
    };
}
} // namespace

TEST(DatabaseLayer, GetDataWithoutRootReportsTheConnectionError)
{
    XComPtr<IWQ_SessionDataIOExDB> io = NewObject<XSessionDataIOExDB, IWQ_SessionDataIOExDB>();
    BSTR value = nullptr;
    EXPECT_EQ(E_POINTER, io->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), &value));
    EXPECT_EQ(nullptr, value);
    const ErrorInfoText info = TakeErrorInfo();
    ASSERT_TRUE(info.present);
    EXPECT_EQ(L"No connection to object storage root object.", info.description);
    EXPECT_EQ(L"Session data manager: XSessionDataIOExDB", info.source);
}

TEST(DatabaseLayer, EveryForwardedOperationWithoutRootFailsAtItsOwnLocation)
{
    XComPtr<IWQ_SessionDataIOExDB> io = NewObject<XSessionDataIOExDB, IWQ_SessionDataIOExDB>();
    for (const Forwarded& op : ForwardedOperations())
    {
        SCOPED_TRACE(op.name);
        ClearLogBook();
        ::SetErrorInfo(0, nullptr);
        EXPECT_EQ(E_POINTER, op.call(io.Get()));
        const ErrorInfoText info = TakeErrorInfo();
        EXPECT_EQ(L"No connection to object storage root object.", info.description);
        EXPECT_TRUE(LogHas(std::string("XSessionDataIOExDB::") + op.name + "\t:" + std::to_string(op.line) + "\t"));
    }
}

TEST(DatabaseLayer, SaveDataWithoutRootIsOk)
{
    XComPtr<IWQ_SessionDataIOExDB> io = NewObject<XSessionDataIOExDB, IWQ_SessionDataIOExDB>();
    EXPECT_EQ(S_OK, io->SaveData(XWQComBSTR(L"k"), XWQComBSTR(L"n")));
}

TEST(DatabaseLayer, SaveDataIsNotForwarded)
{
    Chain chain;
    EXPECT_EQ(S_OK, chain.io->SaveData(XWQComBSTR(L"k"), XWQComBSTR(L"n")));
    EXPECT_TRUE(chain.storage->Calls().empty());
}

TEST(DatabaseLayer, SetStorageIsNotImplemented)
{
    StorageRef storage(RecordingStorage::Pose::Extended);
    XComPtr<IWQ_SessionDataIOExDB> io = NewObject<XSessionDataIOExDB, IWQ_SessionDataIOExDB>();
    EXPECT_EQ(E_NOTIMPL, io->SetStorage(storage.Get()));
    EXPECT_EQ(E_NOTIMPL, io->SetStorage(nullptr));
}

TEST(DatabaseLayer, SetRootNullDisconnects)
{
    Chain chain;
    BSTR value = nullptr;
    EXPECT_EQ(S_FALSE, chain.io->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), &value));
    EXPECT_EQ(S_OK, chain.io->SetRoot(nullptr));
    ::SetErrorInfo(0, nullptr);
    EXPECT_EQ(E_POINTER, chain.io->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), &value));
    EXPECT_EQ(L"No connection to object storage root object.", TakeErrorInfo().description);
}

TEST(DatabaseLayer, SetRootReplacesTheRootAndCountsReferences)
{
    Chain first, second;
    XComPtr<IWQ_SessionDataIOExDB> io = NewObject<XSessionDataIOExDB, IWQ_SessionDataIOExDB>();
    first.root->AddRef();
    const ULONG firstRefs = first.root->Release();
    EXPECT_EQ(S_OK, io->SetRoot(first.root.Get()));
    first.root->AddRef();
    EXPECT_EQ(firstRefs + 1, first.root->Release());
    EXPECT_EQ(S_OK, io->SetRoot(second.root.Get()));
    first.root->AddRef();
    EXPECT_EQ(firstRefs, first.root->Release());  // the old root was released

    EXPECT_EQ(S_OK, io->DeleteKey(XWQComBSTR(L"k")));
    EXPECT_EQ(0u, first.storage->CountCalls("DeleteKey"));
    EXPECT_EQ(1u, second.storage->CountCalls("DeleteKey(k)"));
}

TEST(DatabaseLayer, IsUserProfileIOReportsItsOwnFlagNotTheRoots)
{
    Chain chain(RecordingStorage::Pose::Database);
    chain.storage->SetUserProfile(1);
    ASSERT_EQ(S_OK, chain.root->SetUserProfileIO());
    long flag = -1;
    EXPECT_EQ(S_OK, chain.io->IsUserProfileIO(&flag));
    EXPECT_EQ(0, flag);
    EXPECT_EQ(S_OK, chain.io->SetUserProfileIO());
    EXPECT_EQ(S_OK, chain.io->IsUserProfileIO(&flag));
    EXPECT_EQ(1, flag);

    XComPtr<IWQ_SessionDataIOExDB> unconnected = NewObject<XSessionDataIOExDB, IWQ_SessionDataIOExDB>();
    EXPECT_EQ(S_OK, unconnected->SetUserProfileIO());
    EXPECT_EQ(S_OK, unconnected->IsUserProfileIO(&flag));
    EXPECT_EQ(1, flag);
    long rootFlag = -1;
    EXPECT_EQ(S_OK, chain.root->IsUserProfileIO(&rootFlag));
    EXPECT_EQ(1, rootFlag);
}

TEST(DatabaseLayer, PlainOperationsReachTheRootAndAnswersComeBack)
{
    Chain chain;
    EXPECT_EQ(S_OK, Write(chain.io.Get(), L"Win", L"Left", L"10"));
    EXPECT_EQ(1u, chain.storage->CountCalls("StoreData(Win|1|left=10)"));
    const ReadResult read = Read(chain.io.Get(), L"win", L"left");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(L"10", read.value);
    const ListResult list = List(chain.io.Get(), L"win");
    EXPECT_EQ(S_OK, list.hr);
    ASSERT_EQ(1u, list.count);
    EXPECT_EQ("left=10", list.records[0]);

    ValueRecords records{{L"a", L"1"}};
    EXPECT_EQ(S_OK, chain.io->WriteStringList(XWQComBSTR(L"k"), records.Count(), records.Data()));
    EXPECT_EQ(1u, chain.storage->CountCalls("StoreData(k|1|a=1)"));

    chain.storage->SetSubKeys(L"k", {L"k/x"});
    XBstrArray names;
    EXPECT_EQ(S_OK, chain.io->GetSubKeys(XWQComBSTR(L"k"), 1, names.CountAddress(), names.ItemsAddress()));
    EXPECT_EQ(1u, names.Count());

    EXPECT_EQ(S_OK, chain.io->FlushCache(static_cast<SESSIONDATATYPE>(0)));
    EXPECT_EQ(S_FALSE, Read(chain.io.Get(), L"win", L"left").hr);  // the root's cache was flushed
    EXPECT_EQ(1u, chain.storage->CountCalls("ReadData(win)"));  // before, the cache answered

    chain.storage->SetAllData({{L"all/a", {{L"x", L"1"}}}});
    EXPECT_EQ(S_OK, chain.io->UploadCache(XWQComBSTR(L"all")));
    EXPECT_EQ(1u, chain.storage->CountCalls("ReadAllData(all)"));
    EXPECT_EQ(S_OK, ReadAll(chain.io.Get(), L"all"));
    EXPECT_EQ(2u, chain.storage->CountCalls("ReadAllData(all)"));
}

TEST(DatabaseLayer, StorageTypeIsTheRoots)
{
    Chain chain(RecordingStorage::Pose::Database);
    SDM_STORAGE_TYPE kind = static_cast<SDM_STORAGE_TYPE>(0);
    EXPECT_EQ(S_OK, chain.io->GetStorageType(&kind));
    EXPECT_EQ(3, static_cast<int>(kind));
}

TEST(DatabaseLayer, AsyncOperationsReachTheRootsStorage)
{
    Chain chain;
    chain.storage->SetAsyncError(E_ACCESSDENIED);
    EXPECT_EQ(S_OK, chain.io->FlushAsyncStorage());
    HRESULT async = S_OK;
    EXPECT_EQ(S_OK, chain.io->GetLastErrorAsyncExecution(&async));
    EXPECT_EQ(E_ACCESSDENIED, async);
    EXPECT_EQ(1u, chain.storage->CountCalls("FlushAsyncStorage()"));
}

TEST(DatabaseLayer, ObjectOperationsReachTheRootWithTheObject)
{
    Chain chain;
    StorageRef object;
    IUnknown* identity = object.Get();
    chain.storage->SetObjectRecords(L"k", {{L"n", L"v"}});
    chain.storage->SetSubKeys(L"k", {L"k/a"});
    EXPECT_EQ(S_OK, chain.io->WriteObjectData(identity, XWQComBSTR(L"k"), XWQComBSTR(L"N"), XWQComBSTR(L"v")));
    BSTR value = nullptr;
    EXPECT_EQ(S_OK, chain.io->GetObjectData(identity, XWQComBSTR(L"k"), XWQComBSTR(L"n"), &value));
    EXPECT_STREQ(L"v", value);
    ::SysFreeString(value);
    XValueArray list;
    EXPECT_EQ(S_OK, chain.io->GetObjectStringList(identity, XWQComBSTR(L"k"), list.CountAddress(), list.ItemsAddress()));
    EXPECT_EQ(1u, list.Count());
    ValueRecords records{{L"a", L"1"}};
    EXPECT_EQ(S_OK, chain.io->WriteObjectStringList(identity, XWQComBSTR(L"k"), records.Count(), records.Data()));
    XBstrArray names;
    EXPECT_EQ(S_OK, chain.io->GetObjectSubKeys(identity, XWQComBSTR(L"k"), 0, names.CountAddress(), names.ItemsAddress()));
    EXPECT_EQ(S_OK, chain.io->DeleteObjectKey(identity, XWQComBSTR(L"k")));
    const std::vector<IUnknown*> objects = chain.storage->Objects();
    ASSERT_EQ(6u, objects.size());
    for (IUnknown* seen : objects)
        EXPECT_EQ(identity, seen);
    EXPECT_EQ(1u, chain.storage->CountCalls("StoreObjectData(k|N=v)"));
    EXPECT_EQ(1u, chain.storage->CountCalls("StoreObjectData(k|a=1)"));
    EXPECT_EQ(1u, chain.storage->CountCalls("DeleteObjectKey(k)"));
}

TEST(DatabaseLayer, RootErrorsComeBackUnchangedAndTheRootStays)
{
    Chain chain;
    chain.storage->SetResult("DeleteKey", RPC_E_DISCONNECTED);
    EXPECT_EQ(RPC_E_DISCONNECTED, chain.io->DeleteKey(XWQComBSTR(L"k")));
    chain.storage->ClearResult("DeleteKey");
    EXPECT_EQ(S_OK, chain.io->DeleteKey(XWQComBSTR(L"k")));
    EXPECT_EQ(2u, chain.storage->CountCalls("DeleteKey(k)"));
}

TEST(DatabaseLayer, AnswersItsInterfacesAndErrorInfoSupport)
{
    XComPtr<IWQ_SessionDataIOExDB> io = NewObject<XSessionDataIOExDB, IWQ_SessionDataIOExDB>();
    XComPtr<IWQ_SessionDataIOEx> extended;
    EXPECT_EQ(S_OK, io->QueryInterface(IID_IWQ_SessionDataIOEx, reinterpret_cast<void**>(extended.ReleaseAndGetAddressOf())));
    XComPtr<IWQ_SessionDataIO> plain;
    EXPECT_EQ(S_OK, io->QueryInterface(IID_IWQ_SessionDataIO, reinterpret_cast<void**>(plain.ReleaseAndGetAddressOf())));
    XComPtr<ISupportErrorInfo> support;
    ASSERT_EQ(S_OK, io->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(support.ReleaseAndGetAddressOf())));
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataIOExDB));
    EXPECT_EQ(S_FALSE, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataStorage));
}
