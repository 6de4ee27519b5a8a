// Registration of the storage-root server: /RegServer writes its class (both servers), its
// ProgIDs and its type library (which registers the configuration interface for marshalling);
// /UnregServer removes exactly that and leaves the module's registration alone.
#include "rootservertest.h"
#include "storagetesthelpers.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{
const wchar_t kProgId[] = L"WQSessionDataMng.WQ_SessionDataStorageRoot";
const wchar_t kVersionedProgId[] = L"WQSessionDataMng.WQ_SessionDataStorageRoot.1";

std::wstring ClassKey()
{
    return L"CLSID\\" + GuidText(CLSID_WQ_SessionDataStorageRoot);
}

// Every key that registration writes.
std::vector<std::wstring> WrittenKeys()
{
    return {ClassKey(),
            ClassKey() + L"\\LocalServer32",
            ClassKey() + L"\\InprocServer32",
            kProgId,
            kVersionedProgId,
            L"TypeLib\\" + GuidText(LIBID_XSTORAGEROOTLib),
            L"Interface\\" + GuidText(IID_IWQ_SessionDataRootConfig)};
}

// Keys of the module's registration, which the server's must never touch.
std::vector<std::wstring> ModuleKeys()
{
    return {L"CLSID\\" + GuidText(CLSID_WQ_SessionDataMng), L"CLSID\\" + GuidText(CLSID_WQ_SessionDataStorageDb),
            L"Interface\\" + GuidText(IID_IWQ_SessionDataIOEx), L"WQSessionDataMng.WQSessionDataMng"};
}
} // namespace

TEST(RootRegistration, RegServerWritesBothServersTheProgIdsAndTheTypeLibrary)
{
    ASSERT_EQ(0u, RunRootServer(L"/RegServer"));
    EXPECT_EQ(L"\"" + BinaryPath(L"WQSessionDataRoot64.exe") + L"\"", ClassesValue(ClassKey() + L"\\LocalServer32"));
    EXPECT_EQ(BinaryPath(L"WQSessionDataRoot64.dll"), ClassesValue(ClassKey() + L"\\InprocServer32"));
    EXPECT_EQ(L"Both", ClassesValue(ClassKey() + L"\\InprocServer32", L"ThreadingModel"));
    EXPECT_EQ(L"WQ Session Data Storage Root Class", ClassesValue(ClassKey()));
    EXPECT_EQ(kVersionedProgId, ClassesValue(ClassKey() + L"\\ProgID"));
    EXPECT_EQ(kProgId, ClassesValue(ClassKey() + L"\\VersionIndependentProgID"));
    EXPECT_EQ(GuidText(CLSID_WQ_SessionDataStorageRoot), ClassesValue(std::wstring(kProgId) + L"\\CLSID"));
    EXPECT_EQ(kVersionedProgId, ClassesValue(std::wstring(kProgId) + L"\\CurVer"));
    EXPECT_EQ(GuidText(LIBID_XSTORAGEROOTLib), ClassesValue(ClassKey() + L"\\TypeLib"));
    // The configuration interface is marshalled by the system's automation marshaller.
    EXPECT_EQ(L"{00020424-0000-0000-C000-000000000046}",
              ClassesValue(L"Interface\\" + GuidText(IID_IWQ_SessionDataRootConfig) + L"\\ProxyStubClsid32"));
}

TEST(RootRegistration, UnregServerRemovesExactlyWhatRegServerWrote)
{
    ASSERT_EQ(0u, RunRootServer(L"/RegServer"));
    for (const std::wstring& key : WrittenKeys())
        EXPECT_TRUE(ClassesKeyExists(key)) << Utf8(key);
    ASSERT_EQ(0u, RunRootServer(L"/UnregServer"));
    for (const std::wstring& key : WrittenKeys())
        EXPECT_FALSE(ClassesKeyExists(key)) << Utf8(key);
    for (const std::wstring& key : ModuleKeys())
        EXPECT_TRUE(ClassesKeyExists(key)) << Utf8(key);
    // Unregistering what is not there is no failure; registering again restores everything.
    EXPECT_EQ(0u, RunRootServer(L"-unregserver"));
    ASSERT_EQ(0u, RunRootServer(L"-REGSERVER"));
    for (const std::wstring& key : WrittenKeys())
        EXPECT_TRUE(ClassesKeyExists(key)) << Utf8(key);
}
