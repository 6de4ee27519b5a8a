// Leak check across the process boundary, on the client's side: every call of a root object in
// the server process, answers and failures, leaves no COM task memory and no BSTR behind in the
// client (the BSTR cache is off: OANOCACHE=1 and the spy).
#include "iotesthelpers.h"
#include "mallocspy.h"
#include "rootservertest.h"
#include "sqltesthelpers.h"
#include "xcomtypes.h"

#include <gtest/gtest.h>

namespace
{
void RootCycle(IWQ_SessionDataIOEx* root, IUnknown* object)
{
    const XWQComBSTR key(L"<[HKCU]>\\Suite\\Leaks");
    ValueRecords records{{L"A", L"1"}, {L"B", std::wstring(4096, L'b').c_str()}};
    root->WriteStringList(key, records.Count(), records.Data());
    Write(root, L"<[HKCU]>/Suite/Leaks/Child", L"n", L"v");
    Read(root, L"<[hkcu]>/suite/leaks", L"a");
    Read(root, L"<[hkcu]>/suite/leaks", L"missing");
    List(root, L"<[hkcu]>/suite/leaks");
    SubKeysOf(root, L"<[HKCU]>", 1);
    AllDataOf(root, L"<[HKCU]>/Suite");
    root->WriteObjectData(object, key, XWQComBSTR(L"Left"), XWQComBSTR(L"10"));
    BSTR value = nullptr;
    if (root->GetObjectData(object, key, XWQComBSTR(L"left"), &value) == S_OK)
        ::SysFreeString(value);
    XBstrArray names;
    root->GetObjectSubKeys(object, key, 1, names.CountAddress(), names.ItemsAddress());
    names.Reset();
    root->DeleteObjectKey(object, key);
    // Failures: a reserved key, a bad connection.
    Write(root, L"<[user:x]>/y", L"n", L"v");
    XComPtr<IWQ_SessionDataIOEx> held(root);
    RootConfigOf(held)->Open(XWQComBSTR(L"nosuch:x"));
    BSTR connection = nullptr;
    if (SUCCEEDED(RootConfigOf(held)->GetConnection(&connection)))
        ::SysFreeString(connection);
    root->DeleteKey(key);
    ::SetErrorInfo(0, nullptr);
}
} // namespace

TEST(RootLeaks, CallsAcrossTheProcessBoundaryLeaveNothingInTheClient)
{
    TestDatabaseFile file;
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(file.Connection());
    ASSERT_TRUE(root);
    XComPtr<IMoniker> moniker;
    ASSERT_EQ(S_OK, ::CreateItemMoniker(L"!", L"Window1", moniker.ReleaseAndGetAddressOf()));
    RootCycle(root.Get(), moniker.Get());  // once-per-process strings and proxies are made here
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int i = 0; i < 3; ++i)
        RootCycle(root.Get(), moniker.Get());
    EXPECT_EQ(0u, spy.Outstanding());
    EXPECT_EQ(0u, spy.Refreed());
}

TEST(RootLeaks, TheDatabaseCategoryOverTheServerLeavesNothingInTheClient)
{
    TestDatabaseFile file;
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(file.Connection());
    ASSERT_TRUE(root);
    UserDatabaseCategory category(root, L"Suite\\App", 0);
    ASSERT_EQ(S_OK, category.setup);
    const auto cycle = [&] {
        WriteUserText(category.manager.Get(), L"Window", L"Left", L"10");
        ReadUserText(category.manager.Get(), L"Window", L"Left");
        category.manager->FlushCache(kUserDatabase);
        ReadUserText(category.manager.Get(), L"Window", L"Left");
        XBstrArray names;
        category.manager->GetSubKeys(XWQComBSTR(L""), 1, names.CountAddress(), names.ItemsAddress(), kUserDatabase);
        names.Reset();
        category.manager->DeleteKey(XWQComBSTR(L"Window"), kUserDatabase);
        ::SetErrorInfo(0, nullptr);
    };
    cycle();
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int i = 0; i < 3; ++i)
        cycle();
    EXPECT_EQ(0u, spy.Outstanding());
    EXPECT_EQ(0u, spy.Refreed());
}
