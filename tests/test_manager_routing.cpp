// Routing of the manager's calls to the IO object bound to the category named.
#include "managerfixture.h"

TEST_F(ManagerTest, SetStorageWithKeyZeroOrNullStorageKeepsTheBinding)
{
    RecordingIO* io = Bind(3);
    RecordingIO* storageLike = RecordingIO::Create();  // any object will do: it is never used
    EXPECT_EQ(S_FALSE, mng->SetStorage(nullptr, Cat(3), 1));
    EXPECT_EQ(S_FALSE, mng->SetStorage(reinterpret_cast<IWQ_SessionDataStorage*>(storageLike), Cat(0), 1));
    storageLike->Release();
    EXPECT_EQ(S_OK, mng->IsInit(Cat(3)));
    io->SetValue(L"k", L"v", L"kept");
    XVariant value;
    EXPECT_EQ(S_OK, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, Cat(3)));
    EXPECT_STREQ(L"kept", value.Get().bstrVal);
}

TEST_F(ManagerTest, SetStorageIOWithKeyZeroOrNullIsRefused)
{
    RecordingIO* io = RecordingIO::Create();
    EXPECT_EQ(S_FALSE, mng->SetStorageIO(io, Cat(0)));
    EXPECT_EQ(S_FALSE, mng->SetStorageIO(nullptr, Cat(2)));
    EXPECT_EQ(1, io->References());
    io->Release();
    EXPECT_EQ(S_FALSE, mng->IsInit(Cat(2)));
}

TEST_F(ManagerTest, RebindingReleasesTheOldIOAndTheSameIOTwiceIsSafe)
{
    RecordingIO* first = Bind(2);
    const LONG before = first->References();
    EXPECT_EQ(S_OK, mng->SetStorageIO(first, Cat(2)));
    EXPECT_EQ(before, first->References());
    RecordingIO* second = Bind(2);
    EXPECT_EQ(before - 1, first->References());
    EXPECT_EQ(S_OK, mng->IsInit(Cat(2)));
    second->SetValue(L"k", L"v", L"second");
    XVariant value;
    EXPECT_EQ(S_OK, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, Cat(2)));
    EXPECT_STREQ(L"second", value.Get().bstrVal);
    EXPECT_EQ(0u, first->CountCalls("GetData"));
}

TEST_F(ManagerTest, IsInitOfKeyZeroIsFalseEvenWhenAllKeysAreBound)
{
    for (LONG key = 1; key <= 5; ++key)
        Bind(key);
    EXPECT_EQ(S_FALSE, mng->IsInit(Cat(0)));
    EXPECT_EQ(S_OK, mng->IsInit(Cat(1)));
    EXPECT_EQ(S_FALSE, mng->IsInit(Cat(6)));
}

TEST_F(ManagerTest, PublishedAllDataValueIsAnOrdinaryKey)
{
    Bind(5)->SetValue(L"k", L"v", L"five");
    XVariant value;
    EXPECT_EQ(S_FALSE, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, SDT_allData));
    EXPECT_EQ(VT_EMPTY, value.Get().vt);
    Bind(static_cast<LONG>(SDT_allData))->SetValue(L"k", L"v", L"all");
    EXPECT_EQ(S_OK, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, SDT_allData));
    EXPECT_STREQ(L"all", value.Get().bstrVal);
}

TEST_F(ManagerTest, PublishedCategoryValuesAreNotVisitedByTheAllCategoriesWalk)
{
    Bind(static_cast<LONG>(SDT_globalData))->SetValue(L"k", L"v", L"global");
    XVariant value;
    EXPECT_EQ(S_OK, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, SDT_globalData));
    EXPECT_STREQ(L"global", value.Get().bstrVal);
    XVariant walked;
    EXPECT_EQ(S_FALSE, mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &walked, Cat(0)));
    EXPECT_EQ(VT_EMPTY, walked.Get().vt);
}

TEST_F(ManagerTest, UnboundCategoriesAnswerSFalseExceptTheFlushes)
{
    XVariant value;
    ULONG count = 7;
    tagSESSIONDATAVALUE* list = nullptr;
    BSTR* keys = nullptr;
    XWQComBSTR k(L"k"), v(L"v");
    EXPECT_EQ(S_FALSE, mng->GetData(k, v, VT_BSTR, &value, Cat(1)));
    EXPECT_EQ(S_FALSE, mng->GetStringList(k, &count, &list, Cat(1)));
    EXPECT_EQ(S_FALSE, mng->GetSubKeys(k, 0, &count, &keys, Cat(1)));
    EXPECT_EQ(S_FALSE, mng->WriteStringList(k, 0, nullptr, Cat(1)));
    EXPECT_EQ(S_FALSE, mng->SaveData(Cat(1), k, v));
    EXPECT_EQ(S_FALSE, mng->DeleteKey(k, Cat(1)));
    EXPECT_EQ(S_FALSE, mng->DeleteObjectKey(nullptr, k, Cat(1)));
    EXPECT_EQ(S_FALSE, mng->UploadCache(k, Cat(1)));
    EXPECT_EQ(S_OK, mng->FlushCache(Cat(1)));
    EXPECT_EQ(S_OK, mng->FlushAsyncStorage(Cat(1)));
    EXPECT_EQ(7u, count);
    EXPECT_EQ(nullptr, list);
}

TEST_F(ManagerTest, GetStorageTypeOnAnUnboundKeyLeavesTheOutputAlone)
{
    SDM_STORAGE_TYPE type = static_cast<SDM_STORAGE_TYPE>(77);
    EXPECT_EQ(S_FALSE, mng->GetStorageType(Cat(4), &type));
    EXPECT_EQ(77, static_cast<int>(type));
    EXPECT_EQ(S_FALSE, mng->GetStorageType(Cat(0), &type));
    EXPECT_EQ(77, static_cast<int>(type));
    Bind(4)->SetStorageType(static_cast<SDM_STORAGE_TYPE>(2));
    EXPECT_EQ(S_OK, mng->GetStorageType(Cat(4), &type));
    EXPECT_EQ(2, static_cast<int>(type));
}

TEST_F(ManagerTest, BoundCallsForwardTheirArgumentsAndResultsUnchanged)
{
    RecordingIO* io = Bind(3);
    io->SetResult("SaveData", E_ACCESSDENIED);
    io->SetResult("UploadCache", S_FALSE);
    XWQComBSTR key(L"Users\\A"), name(L"Name");
    EXPECT_EQ(E_ACCESSDENIED, mng->SaveData(Cat(3), key, name));
    EXPECT_EQ(S_FALSE, mng->UploadCache(key, Cat(3)));
    tagSESSIONDATAVALUE records[1] = {{::SysAllocString(L"a"), ::SysAllocString(L"1")}};
    EXPECT_EQ(S_OK, mng->WriteStringList(key, 1, records, Cat(3)));
    XFreeValueRecords(records, 1);
    XBstrArray subKeys;
    io->SetSubKeys(L"Users\\A", {L"Users/A/B"});
    EXPECT_EQ(S_OK, mng->GetSubKeys(key, 1, subKeys.CountAddress(), subKeys.ItemsAddress(), Cat(3)));
    ASSERT_EQ(1u, subKeys.Count());
    EXPECT_STREQ(L"Users/A/B", subKeys[0]);
    const std::vector<std::string> expected = {"SaveData(Users\\A,Name)", "UploadCache(Users\\A)",
                                               "WriteStringList(Users\\A,1,a=1)", "GetSubKeys(Users\\A,1)"};
    EXPECT_EQ(expected, io->Calls());
}

TEST_F(ManagerTest, DeleteKeyNeedsAnExtendedIO)
{
    RecordingIO* plain = Bind(2);
    RecordingIO* extended = Bind(3, true);
    XWQComBSTR key(L"k");
    EXPECT_EQ(S_FALSE, mng->DeleteKey(key, Cat(2)));
    EXPECT_EQ(0u, plain->Calls().size());
    extended->SetResult("DeleteKey", E_FAIL);
    EXPECT_EQ(E_FAIL, mng->DeleteKey(key, Cat(3)));
    EXPECT_EQ(1u, extended->CountCalls("DeleteKey(k)"));
}

TEST_F(ManagerTest, ObjectCallsGoThroughTheExtendedInterface)
{
    RecordingIO* plain = Bind(2);
    RecordingIO* extended = Bind(3, true);
    XWQComBSTR key(L"k"), name(L"n");
    XVariant value;
    SetBstr(value, L"text");
    EXPECT_EQ(S_FALSE, mng->WriteObjectData(plain, key, name, value.Get(), Cat(2)));
    EXPECT_EQ(S_OK, mng->WriteObjectData(plain, key, name, value.Get(), Cat(3)));
    XVariant read;
    EXPECT_EQ(S_FALSE, mng->GetObjectData(plain, key, name, VT_BSTR, &read, Cat(2)));
    EXPECT_EQ(S_OK, mng->GetObjectData(plain, key, name, VT_BSTR, &read, Cat(3)));
    EXPECT_STREQ(L"text", read.Get().bstrVal);
    XVariant vb;
    EXPECT_EQ(S_OK, mng->GetObjectDataVB(plain, key, name, Cat(3), &vb));
    EXPECT_EQ(VT_BSTR, vb.Get().vt);
    EXPECT_EQ(S_OK, mng->DeleteObjectKey(plain, key, Cat(3)));
    EXPECT_EQ(S_FALSE, mng->GetObjectSubKeys(plain, key, 0, nullptr, nullptr, Cat(3)));
    EXPECT_EQ(S_OK, mng->WriteObjectStringList(plain, key, 0, nullptr, Cat(3)));
    EXPECT_EQ(0u, plain->Calls().size());
    EXPECT_EQ(1u, extended->CountCalls("WriteObjectData(obj,k,n,text)"));
    EXPECT_EQ(1u, extended->CountCalls("DeleteObjectKey(obj,k)"));
    EXPECT_EQ(1u, extended->CountCalls("GetObjectSubKeys(obj,k,0)"));
    EXPECT_EQ(1u, extended->CountCalls("WriteObjectStringList(obj,k,0,)"));
}

TEST_F(ManagerTest, GetObjectDataWithKeyZeroCallsNothing)
{
    RecordingIO* io = Bind(5, true);
    io->SetUserProfile(1);
    XVariant read;
    EXPECT_EQ(S_FALSE, mng->GetObjectData(nullptr, XWQComBSTR(L"k"), XWQComBSTR(L"n"), VT_BSTR, &read, Cat(0)));
    EXPECT_EQ(S_FALSE, mng->GetObjectDataVB(nullptr, XWQComBSTR(L"k"), XWQComBSTR(L"n"), Cat(0), &read));
    EXPECT_TRUE(io->Calls().empty());
}

TEST_F(ManagerTest, GetLastErrorAsyncExecutionResetsTheOutputFirst)
{
    HRESULT async = E_FAIL;
    EXPECT_EQ(S_FALSE, mng->GetLastErrorAsyncExecution(Cat(0), &async));
    EXPECT_EQ(S_OK, async);
    async = E_FAIL;
    EXPECT_EQ(S_FALSE, mng->GetLastErrorAsyncExecution(Cat(2), &async));
    EXPECT_EQ(S_OK, async);
    RecordingIO* io = Bind(2);
    io->SetResult("AsyncResult", E_ACCESSDENIED);
    EXPECT_EQ(S_OK, mng->GetLastErrorAsyncExecution(Cat(2), &async));
    EXPECT_EQ(E_ACCESSDENIED, async);
}

TEST_F(ManagerTest, GetLastErrorAsyncExecutionWithNullPointerReportsThroughThePointerCheck)
{
    SetMarkerErrorInfo(L"before");
    EXPECT_EQ(E_POINTER, mng->GetLastErrorAsyncExecution(Cat(2), nullptr));
    const ErrorInfoText info = TakeErrorInfo();
    ASSERT_TRUE(info.present);
    EXPECT_EQ(L"WQSessionDataMng", info.source);
    EXPECT_TRUE(::IsEqualGUID(IID_IWQ_SessionDataMng, info.guid));
    bool logged = false;
    for (const std::string& line : ReadLogBook())
        logged |= line.find("XSessionDataMngImpl::GetLastErrorAsyncExecution") != std::string::npos &&
                  line.find("hr=0x80004003") != std::string::npos;
    EXPECT_TRUE(logged);
}

TEST_F(ManagerTest, ManagerAnswersSupportErrorInfoForItsInterface)
{
    XComPtr<ISupportErrorInfo> support;
    ASSERT_EQ(S_OK, mng.As(support));
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataMng));
    EXPECT_EQ(S_FALSE, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataIO));
}

TEST_F(ManagerTest, AllManagerObjectsShareOneBindingTable)
{
    Bind(4)->SetValue(L"k", L"v", L"shared");
    XComPtr<IWQ_SessionDataMng> other;
    ASSERT_EQ(S_OK, XCreateComObject<XSessionDataMng>(nullptr, IID_IWQ_SessionDataMng,
                                                      reinterpret_cast<void**>(other.ReleaseAndGetAddressOf())));
    EXPECT_EQ(S_OK, other->IsInit(Cat(4)));
    XVariant value;
    EXPECT_EQ(S_OK, other->GetDataVB(XWQComBSTR(L"k"), XWQComBSTR(L"v"), Cat(4), &value));
    EXPECT_STREQ(L"shared", value.Get().bstrVal);
}
