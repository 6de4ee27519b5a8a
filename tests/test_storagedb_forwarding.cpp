// XSessionDataStorageDb: each storage operation calls its root operation with the root key in
// front of the key and hands back the root's answer.
#include "storagedbtest.h"

#include "xcomtypes.h"

namespace
{
// An object of a caller, for the object operations.
class CallerObject : public IUnknown
{
public:
    HRESULT InternalQueryInterface(REFIID iid, void** ppv) { return XQueryInterfaces<IUnknown>(this, iid, ppv); }
    virtual ~CallerObject() = default;
};

XComPtr<IUnknown> NewCallerObject()
{
    XComPtr<IUnknown> object;
    XCreateComObject<CallerObject>(nullptr, IID_IUnknown, reinterpret_cast<void**>(object.ReleaseAndGetAddressOf()));
    return object;
}
} // namespace

TEST_F(StorageDbTest, StoreDataCallsWriteStringListWithTheFullKeyAndTheValues)
{
    Bind(L"app");
    PairRecords records(Pairs{{L"n1", L"v1"}, {L"n2", L"v2"}});
    EXPECT_EQ(S_OK, storage->StoreData(XWQComBSTR(L"k"), records.Count(), records.Data()));
    EXPECT_EQ(std::vector<std::string>{"WriteStringList(app/k|2|n1=v1;n2=v2)"}, Calls());
}

TEST_F(StorageDbTest, StoreDataReturnsTheRootsResult)
{
    Bind(L"app");
    root->SetResult("WriteStringList", E_ACCESSDENIED);
    PairRecords records(Pairs{{L"n", L"v"}});
    EXPECT_EQ(E_ACCESSDENIED, storage->StoreData(XWQComBSTR(L"k"), records.Count(), records.Data()));
    root->SetResult("WriteStringList", S_FALSE);
    EXPECT_EQ(S_FALSE, storage->StoreData(XWQComBSTR(L"k"), records.Count(), records.Data()));
}

TEST_F(StorageDbTest, ReadDataCallsGetStringListAndHandsOutItsList)
{
    Bind(L"app");
    root->SetList(L"app/k", {{L"a", L"1"}, {L"b", L"2"}});
    const PairsResult read = ReadPairs(Base(), L"k");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ((Pairs{{L"a", L"1"}, {L"b", L"2"}}), read.pairs);
    EXPECT_EQ(std::vector<std::string>{"GetStringList(app/k)"}, Calls());
}

TEST_F(StorageDbTest, ReadDataOfAMissingKeyAnswersTheRootsSFalseWithNothing)
{
    Bind(L"app");
    const PairsResult read = ReadPairs(Base(), L"none");
    EXPECT_EQ(S_FALSE, read.hr);
    EXPECT_EQ(0u, read.count);
    EXPECT_TRUE(read.listNull);
}

TEST_F(StorageDbTest, ReadDataReturnsTheRootsFailure)
{
    Bind(L"app");
    root->SetResult("GetStringList", E_ACCESSDENIED);
    EXPECT_EQ(E_ACCESSDENIED, ReadPairs(Base(), L"k").hr);
}

TEST_F(StorageDbTest, GetSubKeysCallsTheRootsGetSubKeysWithTheFullKeyAndTheRecursion)
{
    Bind(L"app");
    ReadSubKeys(Base(), L"k", 1);
    ReadSubKeys(Base(), L"k", 0);
    EXPECT_EQ((std::vector<std::string>{"GetSubKeys(app/k|1)", "GetSubKeys(app/k|0)"}), Calls());
}

TEST_F(StorageDbTest, ReadAllDataCallsGetAllDataWithTheFullKey)
{
    Bind(L"app");
    ReadAll(Base(), L"k");
    EXPECT_EQ(std::vector<std::string>{"GetAllData(app/k)"}, Calls());
}

TEST_F(StorageDbTest, DeleteKeyCallsTheRootsDeleteKeyWithTheFullKey)
{
    Bind(L"app");
    EXPECT_EQ(S_OK, storage->DeleteKey(XWQComBSTR(L"k/x")));
    root->SetResult("DeleteKey", E_ACCESSDENIED);
    EXPECT_EQ(E_ACCESSDENIED, storage->DeleteKey(XWQComBSTR(L"k")));
    EXPECT_EQ((std::vector<std::string>{"DeleteKey(app/k/x)", "DeleteKey(app/k)"}), Calls());
}

TEST_F(StorageDbTest, StoreObjectDataCallsWriteObjectStringListWithTheObject)
{
    Bind(L"app");
    XComPtr<IUnknown> object = NewCallerObject();
    PairRecords records(Pairs{{L"n", L"v"}});
    EXPECT_EQ(S_OK, storage->StoreObjectData(object.Get(), XWQComBSTR(L"k"), records.Count(), records.Data()));
    EXPECT_EQ(std::vector<std::string>{"WriteObjectStringList(obj|app/k|1|n=v)"}, Calls());
    EXPECT_EQ(std::vector<IUnknown*>{object.Get()}, root->Objects());
}

TEST_F(StorageDbTest, ReadObjectDataCallsGetObjectStringListAndHandsOutItsList)
{
    Bind(L"app");
    XComPtr<IUnknown> object = NewCallerObject();
    root->SetList(L"app/k", {{L"a", L"1"}});
    XValueArray list;
    EXPECT_EQ(S_OK, storage->ReadObjectData(object.Get(), XWQComBSTR(L"k"), list.CountAddress(), list.ItemsAddress()));
    ASSERT_EQ(1u, list.Count());
    EXPECT_STREQ(L"a", list[0].bstrValueName);
    EXPECT_STREQ(L"1", list[0].bstrValue);
    EXPECT_EQ(std::vector<std::string>{"GetObjectStringList(obj|app/k)"}, Calls());
    EXPECT_EQ(std::vector<IUnknown*>{object.Get()}, root->Objects());
}

TEST_F(StorageDbTest, GetObjectSubKeysCallsTheRootAndHandsBackItsNamesUnchanged)
{
    Bind(L"app");
    XComPtr<IUnknown> object = NewCallerObject();
    root->SetSubKeys(L"app/k", {L"app/k/one", L"x"});
    XBstrArray names;
    EXPECT_EQ(S_OK, storage->GetObjectSubKeys(object.Get(), XWQComBSTR(L"k"), 1, names.CountAddress(),
                                              names.ItemsAddress()));
    ASSERT_EQ(2u, names.Count());
    EXPECT_STREQ(L"app/k/one", names[0]);
    EXPECT_STREQ(L"x", names[1]);
    EXPECT_EQ(std::vector<std::string>{"GetObjectSubKeys(obj|app/k|1)"}, Calls());
}

TEST_F(StorageDbTest, DeleteObjectKeyCallsTheRootWithTheObjectAndTheFullKey)
{
    Bind(L"app");
    XComPtr<IUnknown> object = NewCallerObject();
    EXPECT_EQ(S_OK, storage->DeleteObjectKey(object.Get(), XWQComBSTR(L"k")));
    EXPECT_EQ(std::vector<std::string>{"DeleteObjectKey(obj|app/k)"}, Calls());
    EXPECT_EQ(std::vector<IUnknown*>{object.Get()}, root->Objects());
}

TEST_F(StorageDbTest, WithoutRootKeyEveryOperationPassesTheKeyUnchanged)
{
    Bind(nullptr);
    XComPtr<IUnknown> object = NewCallerObject();
    PairRecords records(Pairs{{L"n", L"v"}});
    storage->StoreData(XWQComBSTR(L"k\\a"), records.Count(), records.Data());
    ReadPairs(Base(), L"k\\a");
    ReadSubKeys(Base(), L"k\\a", 0);
    ReadAll(Base(), L"k\\a");
    storage->DeleteKey(XWQComBSTR(L"k\\a"));
    storage->StoreObjectData(object.Get(), XWQComBSTR(L"k\\a"), records.Count(), records.Data());
    XValueArray list;
    storage->ReadObjectData(object.Get(), XWQComBSTR(L"k\\a"), list.CountAddress(), list.ItemsAddress());
    XBstrArray names;
    storage->GetObjectSubKeys(object.Get(), XWQComBSTR(L"k\\a"), 0, names.CountAddress(), names.ItemsAddress());
    storage->DeleteObjectKey(object.Get(), XWQComBSTR(L"k\\a"));
    EXPECT_EQ((std::vector<std::string>{"WriteStringList(k\\a|1|n=v)", "GetStringList(k\\a)", "GetSubKeys(k\\a|0)",
                                        "GetAllData(k\\a)", "DeleteKey(k\\a)", "WriteObjectStringList(obj|k\\a|1|n=v)",
                                        "GetObjectStringList(obj|k\\a)", "GetObjectSubKeys(obj|k\\a|0)",
                                        "DeleteObjectKey(obj|k\\a)"}),
              Calls());
}

TEST_F(StorageDbTest, FlushAsyncStorageOutsideAsynchronousModeIsSOkWithoutARootCall)
{
    Bind(L"app");
    EXPECT_EQ(S_OK, storage->FlushAsyncStorage());
    EXPECT_TRUE(Calls().empty());
}

TEST_F(StorageDbTest, GetLastErrorAsyncExecutionOutsideAsynchronousModeYieldsSOk)
{
    Bind(L"app");
    HRESULT result = E_UNEXPECTED;
    EXPECT_EQ(S_OK, storage->GetLastErrorAsyncExecution(&result));
    EXPECT_EQ(S_OK, result);
    EXPECT_TRUE(Calls().empty());
}

TEST_F(StorageDbTest, TheStorageAnswersItsInterfacesAndErrorInfoSupport)
{
    XComPtr<IWQ_SessionDataStorageEx> extended;
    XComPtr<IWQ_SessionDataStorage> plain;
    XComPtr<ISupportErrorInfo> support;
    XComPtr<IWQ_SessionDataStorageReg> registry;
    EXPECT_EQ(S_OK, storage.As(extended));
    EXPECT_EQ(S_OK, storage.As(plain));
    ASSERT_EQ(S_OK, storage.As(support));
    EXPECT_EQ(E_NOINTERFACE, storage.As(registry));
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataStorageDb));
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataStorageEx));
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataStorage));
    EXPECT_EQ(S_FALSE, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataIO));
}

TEST_F(StorageDbTest, TheStorageReferencesItsRootAndReleasesEveryReferenceWhenDestroyed)
{
    const LONG before = root->References();
    Bind(L"app");
    EXPECT_LT(before, root->References());
    storage.Reset();
    EXPECT_EQ(before, root->References());
}
