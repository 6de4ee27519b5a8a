// The type library embedded in the module: names, help strings, slot order, enumerations and
// records as clients see them.
#include "moduletest.h"

#include <gtest/gtest.h>
#include <map>
#include <vector>

namespace
{
class TypeLibTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(S_OK, ::LoadTypeLibEx(ModulePath().c_str(), REGKIND_NONE, library.ReleaseAndGetAddressOf()));
    }

    XComPtr<ITypeInfo> Info(const wchar_t* name)
    {
        XComPtr<ITypeInfo> info;
        for (UINT i = 0; i < library->GetTypeInfoCount(); ++i)
        {
            XComPtr<ITypeInfo> candidate;
            library->GetTypeInfo(i, candidate.ReleaseAndGetAddressOf());
            BSTR typeName = nullptr;
            candidate->GetDocumentation(MEMBERID_NIL, &typeName, nullptr, nullptr, nullptr);
            const bool match = typeName && wcscmp(typeName, name) == 0;
            ::SysFreeString(typeName);
            if (match)
                return candidate;
        }
        return info;
    }

    static std::wstring Doc(ITypeInfo* info, MEMBERID id, bool help)
    {
        BSTR name = nullptr, text = nullptr;
        info->GetDocumentation(id, &name, &text, nullptr, nullptr);
        std::wstring out = help ? (text ? text : L"") : (name ? name : L"");
        ::SysFreeString(name);
        ::SysFreeString(text);
        return out;
    }

    // Names of the methods an interface declares itself, in slot order.
    std::vector<std::wstring> Methods(const wchar_t* interfaceName, std::vector<std::wstring>* helps = nullptr)
    {
        std::vector<std::wstring> names;
        XComPtr<ITypeInfo> info = Info(interfaceName);
        if (!info)
            return names;
        TYPEATTR* attr = nullptr;
        info->GetTypeAttr(&attr);
        std::map<SHORT, std::pair<std::wstring, std::wstring>> bySlot;
        for (UINT i = 0; i < attr->cFuncs; ++i)
        {
            FUNCDESC* desc = nullptr;
            info->GetFuncDesc(i, &desc);
            bySlot[desc->oVft] = {Doc(info.Get(), desc->memid, false), Doc(info.Get(), desc->memid, true)};
            info->ReleaseFuncDesc(desc);
        }
        info->ReleaseTypeAttr(attr);
        for (const auto& slot : bySlot)
        {
            names.push_back(slot.second.first);
            if (helps)
                helps->push_back(slot.second.second);
        }
        return names;
    }

    XComPtr<ITypeLib> library;
};
} // namespace

TEST_F(TypeLibTest, LibraryNameVersionAndHelpString)
{
    BSTR name = nullptr, help = nullptr;
    ASSERT_EQ(S_OK, library->GetDocumentation(-1, &name, &help, nullptr, nullptr));
    EXPECT_STREQ(L"XSESSIONDATAMNGLib", name);
    EXPECT_STREQ(L"XSessionDataMngEx 1.0 Type Library", help);
    ::SysFreeString(name);
    ::SysFreeString(help);
    TLIBATTR* attr = nullptr;
    ASSERT_EQ(S_OK, library->GetLibAttr(&attr));
    EXPECT_TRUE(::IsEqualGUID(LIBID_XSESSIONDATAMNGLib, attr->guid));
    EXPECT_EQ(1, attr->wMajorVerNum);
    EXPECT_EQ(0, attr->wMinorVerNum);
    library->ReleaseTLibAttr(attr);
}

TEST_F(TypeLibTest, CoclassesCarryTheirHelpStringsAndDefaultInterface)
{
    const struct
    {
        const wchar_t* name;
        const wchar_t* help;
        const wchar_t* iface;
    } classes[] = {
        {L"WQ_SessionDataMng", L"WQ Session Data Manager Class", L"IWQ_SessionDataMng"},
        {L"WQ_SessionDataIONoCache", L"WQ Session Data Manager IO No Cache Class", L"IWQ_SessionDataIO"},
        {L"WQ_SessionDataIOCache", L"WQ Session Data Manager IO Cache Class", L"IWQ_SessionDataIO"},
        {L"WQ_SessionDataIOExDB", L"WQ Session Data Manager IOExDB Class", L"IWQ_SessionDataIOExDB"},
        {L"WQ_SessionDataStorageEnv", L"WQ Session Data Manager IO Cache Class", L"IWQ_SessionDataStorageEnv"},
        {L"WQ_SessionDataStorageVolatile", L"WQ Session Data Manager Storage Volatile Class",
         L"IWQ_SessionDataStorageVolatile"},
        {L"WQ_SessionDataStorageReg", L"WQ Session Data Storage Registry Class", L"IWQ_SessionDataStorageReg"},
        {L"WQ_SessionDataStorageDb", L"WQ Session Data Manager Storage Database Class", L"IWQ_SessionDataStorageDb"},
        {L"WQ_SessionDataIOEx", L"WQ Session Data Manager Extended IO Cache Class", L"IWQ_SessionDataIOEx"},
    };
    for (const auto& c : classes)
    {
        SCOPED_TRACE(Narrow(c.name));
        XComPtr<ITypeInfo> info = Info(c.name);
        ASSERT_TRUE(info);
        EXPECT_EQ(c.help, Doc(info.Get(), MEMBERID_NIL, true));
        HREFTYPE ref = 0;
        ASSERT_EQ(S_OK, info->GetRefTypeOfImplType(0, &ref));
        XComPtr<ITypeInfo> iface;
        ASSERT_EQ(S_OK, info->GetRefTypeInfo(ref, iface.ReleaseAndGetAddressOf()));
        EXPECT_EQ(c.iface, Doc(iface.Get(), MEMBERID_NIL, false));
    }
}

TEST_F(TypeLibTest, InterfaceMethodsInSlotOrderWithHelpStrings)
{
    const std::map<std::wstring, std::vector<std::wstring>> expected = {
        {L"IWQ_SessionDataStorage",
         {L"StoreData", L"ReadData", L"GetSubKeys", L"ReadAllData", L"FlushAsyncStorage",
          L"GetLastErrorAsyncExecution"}},
        {L"IWQ_SessionDataStorageEx",
         {L"StoreObjectData", L"ReadObjectData", L"GetObjectSubKeys", L"DeleteObjectKey", L"DeleteKey"}},
        {L"IWQ_SessionDataStorageDb",
         {L"SetRoot", L"SetRootKey", L"SetUserProfileStorage", L"IsUserProfileStorage", L"SetAsyncWriteMode"}},
        {L"IWQ_SessionDataStorageReg", {L"Initialize"}},
        {L"IWQ_SessionDataStorageEnv", {}},
        {L"IWQ_SessionDataStorageVolatile", {}},
        {L"IWQ_SessionDataIO",
         {L"SetStorage", L"WriteData", L"GetData", L"GetStringList", L"WriteStringList", L"GetSubKeys", L"SaveData",
          L"FlushCache", L"FlushAsyncStorage", L"GetLastErrorAsyncExecution", L"UploadCache", L"GetAllData",
          L"GetStorageType"}},
        {L"IWQ_SessionDataIOEx",
         {L"WriteObjectData", L"GetObjectData", L"GetObjectStringList", L"WriteObjectStringList",
          L"GetObjectSubKeys", L"DeleteObjectKey", L"DeleteKey", L"SetUserProfileIO", L"IsUserProfileIO"}},
        {L"IWQ_SessionDataIOExDB", {L"SetRoot"}},
        {L"IWQ_SessionDataMng",
         {L"SetStorage", L"SetStorageIO", L"GetSubKeys", L"GetObjectSubKeys", L"SaveData", L"TransferDataFromTo",
          L"GetData", L"GetDataEncrypt", L"WriteData", L"GetStringList", L"WriteStringList", L"GetObjectData",
          L"WriteObjectData", L"GetObjectStringList", L"WriteObjectStringList", L"IsInit", L"DeleteObjectKey",
          L"DeleteKey", L"GetDataVB", L"GetObjectDataVB", L"FlushCache", L"FlushAsyncStorage",
          L"GetLastErrorAsyncExecution", L"UploadCache", L"GetStorageType", L"SetInvalid", L"Validate"}},
    };
    for (const auto& entry : expected)
    {
        SCOPED_TRACE(Narrow(entry.first.c_str()));
        XComPtr<ITypeInfo> info = Info(entry.first.c_str());
        ASSERT_TRUE(info);
        EXPECT_EQ(entry.first + L" Interface", Doc(info.Get(), MEMBERID_NIL, true));
        std::vector<std::wstring> helps;
        EXPECT_EQ(entry.second, Methods(entry.first.c_str(), &helps));
        for (size_t i = 0; i < helps.size(); ++i)
            EXPECT_EQ(L"method " + entry.second[i], helps[i]);
    }
}

TEST_F(TypeLibTest, ManagerTransferNamesItsFirstParameterDataTypeForm)
{
    XComPtr<ITypeInfo> info = Info(L"IWQ_SessionDataMng");
    ASSERT_TRUE(info);
    TYPEATTR* attr = nullptr;
    info->GetTypeAttr(&attr);
    bool found = false;
    for (UINT i = 0; i < attr->cFuncs; ++i)
    {
        FUNCDESC* desc = nullptr;
        info->GetFuncDesc(i, &desc);
        BSTR names[5] = {};
        UINT count = 0;
        info->GetNames(desc->memid, names, 5, &count);
        if (count == 5 && wcscmp(names[0], L"TransferDataFromTo") == 0)
        {
            found = true;
            EXPECT_STREQ(L"dataTypeForm", names[1]);
            EXPECT_STREQ(L"bstrKeyNameTo", names[4]);
        }
        for (UINT n = 0; n < count; ++n)
            ::SysFreeString(names[n]);
        info->ReleaseFuncDesc(desc);
    }
    info->ReleaseTypeAttr(attr);
    EXPECT_TRUE(found);
}

TEST_F(TypeLibTest, EnumerationsHaveTheirPublishedValues)
{
    const std::map<std::wstring, std::vector<std::pair<std::wstring, ULONG>>> expected = {
        {L"SESSIONDATATYPE",
         {{L"SDT_allData", 0x8C000000}, {L"SDT_globalData", 0x8C000001}, {L"SDT_userDataDB", 0x8C000002},
          {L"SDT_machineData", 0x8C000003}, {L"SDT_userData", 0x8C000004}, {L"SDT_volatileData", 0x8C000005},
          {L"SDT_UserSpec1", 0x8C0003E8}, {L"SDT_UserSpec2", 0x8C0003E9}, {L"SDT_UserSpec3", 0x8C0003EA}}},
        {L"SDM_STORAGE_TYPE",
         {{L"SDM_STORAGE_NOT_INITIALIZED", 0x8C000000}, {L"SDM_STORAGE_UNKNOWN_TYPE", 0x8C000001},
          {L"SDM_STORAGE_REGISTRY", 0x8C000002}, {L"SDM_STORAGE_DATABASE", 0x8C000003},
          {L"SDM_STORAGE_ENVIRONMENT", 0x8C000004}, {L"SDM_STORAGE_VOLATILE", 0x8C000005}}},
        {L"SESSIONDATAREGKEY",
         {{L"SDRK_LOCAL_MACHINE", 0x8C000000}, {L"SDRK_CURRENT_USER", 0x8C000001}, {L"SDRK_CLASSES_ROOT", 0x8C000002},
          {L"SDRK_USERS", 0x8C000003}, {L"SDRK_CURRENT_CONFIG", 0x8C000004}}},
    };
    for (const auto& entry : expected)
    {
        SCOPED_TRACE(Narrow(entry.first.c_str()));
        XComPtr<ITypeInfo> info = Info(entry.first.c_str());
        ASSERT_TRUE(info);
        TYPEATTR* attr = nullptr;
        info->GetTypeAttr(&attr);
        ASSERT_EQ(entry.second.size(), attr->cVars);
        for (UINT i = 0; i < attr->cVars; ++i)
        {
            VARDESC* var = nullptr;
            info->GetVarDesc(i, &var);
            EXPECT_EQ(entry.second[i].first, Doc(info.Get(), var->memid, false));
            EXPECT_EQ(entry.second[i].second, static_cast<ULONG>(var->lpvarValue->lVal));
            info->ReleaseVarDesc(var);
        }
        info->ReleaseTypeAttr(attr);
    }
}

TEST_F(TypeLibTest, RecordsHaveTheirFieldsInOrder)
{
    const std::map<std::wstring, std::vector<std::wstring>> expected = {
        {L"tagSESSIONDATAVALUE", {L"bstrValueName", L"bstrValue"}},
        {L"tagKEY_SESSIONDATAVALUE", {L"bstrKeyName", L"ulCount", L"pSessionDataValue"}},
    };
    for (const auto& entry : expected)
    {
        XComPtr<ITypeInfo> info = Info(entry.first.c_str());
        ASSERT_TRUE(info) << Narrow(entry.first.c_str());
        TYPEATTR* attr = nullptr;
        info->GetTypeAttr(&attr);
        EXPECT_EQ(TKIND_RECORD, attr->typekind);
        std::vector<std::wstring> fields;
        for (UINT i = 0; i < attr->cVars; ++i)
        {
            VARDESC* var = nullptr;
            info->GetVarDesc(i, &var);
            fields.push_back(Doc(info.Get(), var->memid, false));
            info->ReleaseVarDesc(var);
        }
        info->ReleaseTypeAttr(attr);
        EXPECT_EQ(entry.second, fields);
    }
}
