// regsvr32 registration and unregistration of the module, read back with the registry API.
// Runs alone (it unregisters the module for a moment) and leaves the module registered.
#include "moduletest.h"

#include <gtest/gtest.h>

namespace
{
struct Expected
{
    const CLSID* clsid;
    const wchar_t* progIdName;
    const wchar_t* progIdDescription;
    const wchar_t* classDescription;
    bool programmable;
};

const Expected kClasses[] = {
    {&CLSID_WQ_SessionDataMng, L"WQSessionDataMng", L"WQ Session Data Manager Class", L"WQ Session Data Manager Class",
     false},
    {&CLSID_WQ_SessionDataIOCache, L"WQ_SessionDataIOCache", L"WQ Session Data Manager Class",
     L"WQ Session Data Manager Class", false},
    {&CLSID_WQ_SessionDataIONoCache, L"WQ_SessionDataIONoCache", L"WQ Session Data Manager Class",
     L"WQ Session Data Manager Class", false},
    {&CLSID_WQ_SessionDataIOExDB, L"WQ_SessionDataIOExDB", L"WQ Session Data Manager IOExDB Class",
     L"WQ Session Data Manager IOExDB Class", true},
    {&CLSID_WQ_SessionDataStorageEnv, L"WQ_SessionDataStorageEnv",
     L"WQ Session Data Manager Storage Environment Class", L"WQ Session Data Manager Storage Environment Class", true},
    {&CLSID_WQ_SessionDataStorageVolatile, L"WQ_SessionDataStorageVolatile",
     L"WQ Session Data Manager Storage Volatile Class", L"WQ Session Data Manager Storage Volatile Class", false},
    {&CLSID_WQ_SessionDataStorageReg, L"WQ_SessionDataStorageReg", L"WQ Session Data Storage Registry Class",
     L"WQ Session Data Storage Registry Class", false},
    {&CLSID_WQ_SessionDataStorageDb, L"WQ_SessionDataStorageDb", L"WQ Session Data Manager Database Storage Class",
     L"WQ Session Data Manager Storage Database Class", false},
    {&CLSID_WQ_SessionDataIOEx, L"SessionDataIOEx", L"XSessionDataIOEx Class", L"XSessionDataIOEx Class", false},
};

const IID* const kInterfaces[] = {
    &IID_IWQ_SessionDataStorage, &IID_IWQ_SessionDataStorageEx, &IID_IWQ_SessionDataStorageDb,
    &IID_IWQ_SessionDataStorageReg, &IID_IWQ_SessionDataStorageEnv, &IID_IWQ_SessionDataStorageVolatile,
    &IID_IWQ_SessionDataIO, &IID_IWQ_SessionDataIOEx, &IID_IWQ_SessionDataIOExDB, &IID_IWQ_SessionDataMng,
};

class ModuleRegistration : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(0u, RunRegsvr32(false)); }
    void TearDown() override { EXPECT_EQ(0u, RunRegsvr32(false)); }
};
} // namespace

TEST_F(ModuleRegistration, EveryClassHasItsProgIdsAndClassKey)
{
    for (const Expected& c : kClasses)
    {
        SCOPED_TRACE(testing::Message() << Narrow(c.progIdName));
        const std::wstring clsid = GuidText(*c.clsid);
        const std::wstring progId = std::wstring(L"WQSessionDataMng.") + c.progIdName;
        const std::wstring versioned = progId + L".1";
        EXPECT_EQ(c.progIdDescription, ClassesValue(versioned));
        EXPECT_EQ(clsid, ClassesValue(versioned + L"\\CLSID"));
        EXPECT_EQ(c.progIdDescription, ClassesValue(progId));
        EXPECT_EQ(clsid, ClassesValue(progId + L"\\CLSID"));
        EXPECT_EQ(versioned, ClassesValue(progId + L"\\CurVer"));

        const std::wstring classKey = L"CLSID\\" + clsid;
        EXPECT_EQ(c.classDescription, ClassesValue(classKey));
        EXPECT_EQ(versioned, ClassesValue(classKey + L"\\ProgID"));
        EXPECT_EQ(progId, ClassesValue(classKey + L"\\VersionIndependentProgID"));
        EXPECT_EQ(0, _wcsicmp(ModulePath().c_str(), ClassesValue(classKey + L"\\InprocServer32").c_str()));
        EXPECT_EQ(L"Both", ClassesValue(classKey + L"\\InprocServer32", L"ThreadingModel"));
        EXPECT_EQ(GuidText(LIBID_XSESSIONDATAMNGLib), ClassesValue(classKey + L"\\TypeLib"));
        EXPECT_EQ(c.programmable, ClassesKeyExists(classKey + L"\\Programmable"));
    }
}

TEST_F(ModuleRegistration, BothProgIdsResolveToTheSameClass)
{
    for (const Expected& c : kClasses)
    {
        const std::wstring progId = std::wstring(L"WQSessionDataMng.") + c.progIdName;
        CLSID plain{}, versioned{};
        ASSERT_EQ(S_OK, ::CLSIDFromProgID(progId.c_str(), &plain));
        ASSERT_EQ(S_OK, ::CLSIDFromProgID((progId + L".1").c_str(), &versioned));
        EXPECT_TRUE(::IsEqualCLSID(*c.clsid, plain));
        EXPECT_TRUE(::IsEqualCLSID(plain, versioned));
    }
    LPOLESTR name = nullptr;
    ASSERT_EQ(S_OK, ::ProgIDFromCLSID(CLSID_WQ_SessionDataIOCache, &name));
    EXPECT_STREQ(L"WQSessionDataMng.WQ_SessionDataIOCache.1", name);
    ::CoTaskMemFree(name);
}

TEST_F(ModuleRegistration, InterfacesHaveProxyStubsAndTheTypeLibraryIsRegistered)
{
    for (const IID* iid : kInterfaces)
    {
        const std::wstring key = L"Interface\\" + GuidText(*iid);
        EXPECT_TRUE(ClassesKeyExists(key + L"\\ProxyStubClsid32")) << Narrow(key.c_str());
        const std::wstring proxy = ClassesValue(key + L"\\ProxyStubClsid32");
        EXPECT_TRUE(ClassesKeyExists(L"CLSID\\" + proxy + L"\\InprocServer32"));
    }
    BSTR path = nullptr;
    ASSERT_EQ(S_OK, ::QueryPathOfRegTypeLib(LIBID_XSESSIONDATAMNGLib, 1, 0, LOCALE_NEUTRAL, &path));
    EXPECT_NE(nullptr, wcsstr(path, L"WQSessionDataMng64.dll"));
    ::SysFreeString(path);
}

TEST_F(ModuleRegistration, RegistrationReplacesAClassKeyWhole)
{
    const std::wstring stray = L"CLSID\\" + GuidText(CLSID_WQ_SessionDataMng) + L"\\Stray";
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, ::RegCreateKeyExW(HKEY_CLASSES_ROOT, stray.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr,
                                               &key, nullptr));
    ::RegCloseKey(key);
    ASSERT_EQ(0u, RunRegsvr32(false));
    EXPECT_FALSE(ClassesKeyExists(stray));
}

TEST_F(ModuleRegistration, UnregistrationRemovesEveryClassKeyButKeepsClsid)
{
    ASSERT_EQ(0u, RunRegsvr32(true));
    for (const Expected& c : kClasses)
    {
        const std::wstring progId = std::wstring(L"WQSessionDataMng.") + c.progIdName;
        EXPECT_FALSE(ClassesKeyExists(L"CLSID\\" + GuidText(*c.clsid)));
        EXPECT_FALSE(ClassesKeyExists(progId));
        EXPECT_FALSE(ClassesKeyExists(progId + L".1"));
    }
    for (const IID* iid : kInterfaces)
        EXPECT_FALSE(ClassesKeyExists(L"Interface\\" + GuidText(*iid) + L"\\ProxyStubClsid32"));
    EXPECT_TRUE(ClassesKeyExists(L"CLSID"));
    BSTR path = nullptr;
    EXPECT_NE(S_OK, ::QueryPathOfRegTypeLib(LIBID_XSESSIONDATAMNGLib, 1, 0, LOCALE_NEUTRAL, &path));
    ::SysFreeString(path);
    CLSID clsid;
    EXPECT_NE(S_OK, ::CLSIDFromProgID(L"WQSessionDataMng.WQSessionDataMng", &clsid));
}
