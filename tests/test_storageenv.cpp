// XSessionDataStorageEnv against the process environment: variable names made of key and value
// name, the environment copy taken at the first read, trimming, skipped entries and sub-keys
// made from the parent paths of variables.
#include "storagetesthelpers.h"
#include "testenv.h"
#include "xsessiondatastorageenv.h"

#include <gtest/gtest.h>

namespace
{
void SetVariable(const wchar_t* name, const wchar_t* value)
{
    ASSERT_TRUE(::SetEnvironmentVariableW(name, value)) << Utf8(name);
}

// An environment storage that counts the fills of its environment copy, or fills it from a
// fixed list instead of the process environment.
class ScriptedEnvironmentStorage : public XSessionDataStorageEnv
{
public:
    HRESULT GetListOfEnvValues(XStoragePairs& variables) override
    {
        ++fills;
        if (!scripted)
            return XSessionDataStorageEnv::GetListOfEnvValues(variables);
        for (const auto& variable : script)
            variables[XWQComBSTR(variable.first.c_str())] = XWQComBSTR(variable.second.c_str());
        return variables.empty() ? S_FALSE : S_OK;
    }
    int fills = 0;
    bool scripted = false;
    Pairs script;
};

class EnvironmentStorageTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Raw::RemoveKeyedVariables();
        storage = NewStorage<XSessionDataStorageEnv>();
        ASSERT_TRUE(storage);
        ClearLogBook();
    }
    XComPtr<IWQ_SessionDataStorage> storage;
};

XComPtr<IWQ_SessionDataStorage> NewScripted(ScriptedEnvironmentStorage*& object)
{
    XComPtr<IWQ_SessionDataStorage> storage;
    XComObject<ScriptedEnvironmentStorage>::Create(IID_IWQ_SessionDataStorage,
                                                   reinterpret_cast<void**>(storage.ReleaseAndGetAddressOf()));
    object = static_cast<ScriptedEnvironmentStorage*>(static_cast<XSessionDataStorageEnv*>(
        static_cast<IWQ_SessionDataStorageEnv*>(static_cast<IWQ_SessionDataStorage*>(storage.Get()))));
    return storage;
}
} // namespace

TEST_F(EnvironmentStorageTest, PathUnderAppSubIsTheUpperCaseVariableAndAFreshObjectReadsItBack)
{
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"app/sub", {{L"Path", L"C:\\tools"}}));
    EXPECT_EQ(L"C:\\tools", Raw::EnvironmentValue(L"APP/SUB/PATH"));
    const XComPtr<IWQ_SessionDataStorage> fresh = NewStorage<XSessionDataStorageEnv>();
    const PairsResult read = ReadPairs(fresh.Get(), L"app/sub");
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(1u, read.count);
    EXPECT_EQ((Pairs{{L"PATH", L"C:\\tools"}}), read.pairs);
}

TEST_F(EnvironmentStorageTest, AValueWrittenAfterTheFirstReadIsNotSeenByThatObject)
{
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"cache", {{L"before", L"1"}}));
    EXPECT_EQ((Pairs{{L"BEFORE", L"1"}}), ReadPairs(storage.Get(), L"cache").pairs);
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"cache", {{L"after", L"2"}, {L"before", L"changed"}}));
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"cache/sub", {{L"v", L"3"}}));
    EXPECT_EQ(L"2", Raw::EnvironmentValue(L"CACHE/AFTER"));
    EXPECT_EQ((Pairs{{L"BEFORE", L"1"}}), ReadPairs(storage.Get(), L"cache").pairs);
    EXPECT_EQ(S_FALSE, ReadPairs(storage.Get(), L"cache/sub").hr);
    // CACHE itself is the parent path of CACHE/BEFORE; CACHE/SUB is not known to this object.
    EXPECT_EQ(std::vector<std::wstring>{L"CACHE"}, ReadSubKeys(storage.Get(), L"cache", 1).names);
    const XComPtr<IWQ_SessionDataStorage> fresh = NewStorage<XSessionDataStorageEnv>();
    EXPECT_EQ((Pairs{{L"AFTER", L"2"}, {L"BEFORE", L"changed"}}), ReadPairs(fresh.Get(), L"cache").pairs);
    EXPECT_EQ((std::vector<std::wstring>{L"CACHE", L"CACHE/SUB"}), ReadSubKeys(fresh.Get(), L"cache", 1).names);
}

TEST_F(EnvironmentStorageTest, EntriesBeginningWithEqualsOrWithOnlyBlanksBeforeItNeverAppear)
{
    SetVariable(L"=Z:", L"Z:\\drive");
    SetVariable(L"  ", L"blank name");
    SetVariable(L"WQSDMPLAIN", L"plain");
    const PairsResult read = ReadPairs(storage.Get(), L"");
    ASSERT_EQ(S_OK, read.hr);
    bool plain = false;
    for (const auto& pair : read.pairs)
    {
        EXPECT_FALSE(pair.first.empty());
        EXPECT_NE(L'=', pair.first.front()) << Utf8(pair.first);
        EXPECT_NE(L"Z:\\drive", pair.second);
        EXPECT_NE(L"blank name", pair.second);
        plain = plain || (pair.first == L"WQSDMPLAIN" && pair.second == L"plain");
    }
    EXPECT_TRUE(plain);
    for (const std::wstring& name : ReadSubKeys(storage.Get(), L"", 1).names)
        EXPECT_EQ(std::wstring::npos, name.find(L'=')) << Utf8(name);
}

TEST_F(EnvironmentStorageTest, SubKeysOfTheEmptyKeyAreTheParentPathsOfVariables)
{
    SetVariable(L"A/B/C/X", L"1");
    SetVariable(L"A/Y", L"2");
    const NamesResult recursive = ReadSubKeys(storage.Get(), L"", 1);
    EXPECT_EQ(S_OK, recursive.hr);
    EXPECT_EQ((std::vector<std::wstring>{L"A", L"A/B/C"}), recursive.names);
    const NamesResult oneLevel = ReadSubKeys(storage.Get(), L"", 0);
    EXPECT_EQ(S_OK, oneLevel.hr);
    EXPECT_EQ(std::vector<std::wstring>{L"A"}, oneLevel.names);
}

TEST_F(EnvironmentStorageTest, ReadingMatchesTheKeyWithoutRegardToCaseAndBackslashes)
{
    SetVariable(L"MYAPP/SUB/NAME", L"value");
    const Pairs expected{{L"NAME", L"value"}};
    EXPECT_EQ(expected, ReadPairs(storage.Get(), L"MyApp\\Sub").pairs);
    EXPECT_EQ(expected, ReadPairs(storage.Get(), L"myapp/sub").pairs);
}

TEST_F(EnvironmentStorageTest, OnlyVariablesDirectlyUnderTheKeyAreItsValues)
{
    SetVariable(L"ONLY/SUB/X", L"1");
    SetVariable(L"ONLY/SUB/DEEP/Y", L"2");
    SetVariable(L"ONLY/SUBX/Z", L"3");
    SetVariable(L"ONLYSUB", L"4");
    EXPECT_EQ((Pairs{{L"X", L"1"}}), ReadPairs(storage.Get(), L"only/sub").pairs);
    EXPECT_EQ(S_FALSE, ReadPairs(storage.Get(), L"only").hr);
}

TEST_F(EnvironmentStorageTest, TheEmptyKeyReadsTheVariablesWithoutSlash)
{
    SetVariable(L"WQSDMTOP", L"top");
    SetVariable(L"WQSDMTOP/CHILD", L"child");
    const PairsResult read = ReadPairs(storage.Get(), nullptr);
    ASSERT_EQ(S_OK, read.hr);
    bool top = false;
    for (const auto& pair : read.pairs)
    {
        EXPECT_EQ(std::wstring::npos, pair.first.find(L'/')) << Utf8(pair.first);
        top = top || (pair.first == L"WQSDMTOP" && pair.second == L"top");
    }
    EXPECT_TRUE(top);
}

TEST_F(EnvironmentStorageTest, NamesAndValuesAreTrimmedOnBothSides)
{
    SetVariable(L"  TRIM/NAME \t", L"  padded\t ");
    SetVariable(L"TRIM/ INNER", L"x");
    EXPECT_EQ((Pairs{{L" INNER", L"x"}, {L"NAME", L"padded"}}), ReadPairs(storage.Get(), L"trim").pairs);
}

TEST_F(EnvironmentStorageTest, AKeyWithoutVariablesAnswersSFalseWithANullList)
{
    const PairsResult read = ReadPairs(storage.Get(), L"no/such/key");
    EXPECT_EQ(S_FALSE, read.hr);
    EXPECT_EQ(0u, read.count);
    EXPECT_TRUE(read.listNull);
    const NamesResult names = ReadSubKeys(storage.Get(), L"no/such/key", 1);
    EXPECT_EQ(S_FALSE, names.hr);
    EXPECT_EQ(0u, names.count);
    EXPECT_TRUE(names.listNull);
}

TEST_F(EnvironmentStorageTest, SubKeysOneLevelBelowAKeyAndRecursively)
{
    SetVariable(L"TREE/A/X", L"1");
    SetVariable(L"TREE/A/B/Y", L"2");
    SetVariable(L"TREE/C/Z", L"3");
    EXPECT_EQ((std::vector<std::wstring>{L"TREE/A", L"TREE/C"}), ReadSubKeys(storage.Get(), L"tree", 0).names);
    EXPECT_EQ((std::vector<std::wstring>{L"TREE/A", L"TREE/A/B", L"TREE/C"}),
              ReadSubKeys(storage.Get(), L"Tree", 1).names);
}

TEST_F(EnvironmentStorageTest, AVariableDirectlyUnderTheKeyListsTheKeyItself)
{
    // The parent path of TOPKEY/V is the key itself; nothing past the key's length rules it out.
    SetVariable(L"TOPKEY/V", L"1");
    SetVariable(L"TOPKEY/S/W", L"2");
    EXPECT_EQ((std::vector<std::wstring>{L"TOPKEY", L"TOPKEY/S"}), ReadSubKeys(storage.Get(), L"topkey", 0).names);
}

TEST_F(EnvironmentStorageTest, SubKeysAreListedOnceRegardlessOfCaseAndSortedOrdinally)
{
    SetVariable(L"Dup/Sub/x", L"1");
    SetVariable(L"DUP/SUB/y", L"2");
    SetVariable(L"DUP/a/z", L"3");
    // The copy is ordered ordinally: DUP/SUB/y comes before Dup/Sub/x, so its spelling is listed.
    EXPECT_EQ((std::vector<std::wstring>{L"DUP/SUB", L"DUP/a"}), ReadSubKeys(storage.Get(), L"dup", 0).names);
}

TEST_F(EnvironmentStorageTest, StoreDataWithoutPairsAnswersSFalse)
{
    EXPECT_EQ(S_FALSE, StorePairs(storage.Get(), L"k", {}));
    EXPECT_EQ(S_FALSE, storage->StoreData(nullptr, 0, nullptr));
}

TEST_F(EnvironmentStorageTest, NullAndEmptyKeysWriteVariablesWithoutSlash)
{
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), nullptr, {{L"wqsdmnull", L"1"}}));
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"", {{L"wqsdmempty", L"2"}}));
    EXPECT_EQ(L"1", Raw::EnvironmentValue(L"WQSDMNULL"));
    EXPECT_EQ(L"2", Raw::EnvironmentValue(L"WQSDMEMPTY"));
}

TEST_F(EnvironmentStorageTest, KeysWithBackslashesOrATrailingSlashWriteTheSameVariable)
{
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"one\\two", {{L"a", L"1"}}));
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"one/two/", {{L"b", L"2"}}));
    EXPECT_EQ(L"1", Raw::EnvironmentValue(L"ONE/TWO/A"));
    EXPECT_EQ(L"2", Raw::EnvironmentValue(L"ONE/TWO/B"));
    EXPECT_EQ(std::nullopt, Raw::EnvironmentValue(L"ONE/TWO//B"));
}

TEST_F(EnvironmentStorageTest, TheLaterOfTwoEqualNamesWins)
{
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"twice", {{L"n", L"first"}, {L"n", L"second"}}));
    EXPECT_EQ(L"second", Raw::EnvironmentValue(L"TWICE/N"));
}

TEST_F(EnvironmentStorageTest, AFailingVariableIsReportedAndTheOthersAreStillSet)
{
    SetMarkerErrorInfo(L"marker");
    EXPECT_EQ(E_FAIL, StorePairs(storage.Get(), L"part", {{L"a=b", L"bad"}, {L"good", L"set"}}));
    // Logged at the method's location, with the program's own message.
    EXPECT_TRUE(LogHas({"\tXSessionDataStorageEnv::StoreData\txsessiondatastorageenv:",
                        "XSessionDataStorageEnv::StoreData -> Open registry key with write access failed"}));
    EXPECT_NE(L"marker", TakeErrorInfo().description);
    EXPECT_EQ(L"set", Raw::EnvironmentValue(L"PART/GOOD"));
}

TEST_F(EnvironmentStorageTest, AnEmptyVariableNameFails)
{
    EXPECT_EQ(E_FAIL, StorePairs(storage.Get(), L"", {{L"", L"nameless"}}));
}

TEST_F(EnvironmentStorageTest, AValueOfAMegabyteIsRefusedAndNothingIsSet)
{
    const std::wstring big(1024 * 1024, L'x');
    EXPECT_EQ(E_INVALIDARG, StorePairs(storage.Get(), L"huge", {{L"a", L"small"}, {L"b", big}}));
    EXPECT_EQ(L"XSessionDataStorageEnv::StoreData -> Value longer than 32766 characters", TakeErrorInfo().description);
    EXPECT_EQ(std::nullopt, Raw::EnvironmentValue(L"HUGE/A"));
    EXPECT_EQ(std::nullopt, Raw::EnvironmentValue(L"HUGE/B"));
}

TEST_F(EnvironmentStorageTest, AVariableNameOfMoreThan32766CharactersIsRefused)
{
    const std::wstring longName(32766, L'n');
    EXPECT_EQ(E_INVALIDARG, StorePairs(storage.Get(), L"k", {{longName, L"1"}}));
    EXPECT_EQ(L"XSessionDataStorageEnv::StoreData -> Variable name longer than 32766 characters",
              TakeErrorInfo().description);
}

TEST_F(EnvironmentStorageTest, ALongValueWithinTheLimitIsStoredAndReadBack)
{
    std::wstring value(30000, L'v');
    value[0] = L'a';
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"long", {{L"value", value}}));
    const XComPtr<IWQ_SessionDataStorage> fresh = NewStorage<XSessionDataStorageEnv>();
    EXPECT_EQ((Pairs{{L"VALUE", value}}), ReadPairs(fresh.Get(), L"long").pairs);
}

TEST_F(EnvironmentStorageTest, NamesWithSpacesAndNonAsciiCharactersGoThrough)
{
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"mein schl\u00fcssel/\u043a\u043b\u044e\u0447",
                               {{L"gr\u00f6\u00dfe x", L"\u65e5\u672c"}}));
    EXPECT_EQ(L"\u65e5\u672c",
              Raw::EnvironmentValue(L"MEIN SCHL\u00dcSSEL/\u041a\u041b\u042e\u0427/GR\u00d6\u00dfE X"));
    const XComPtr<IWQ_SessionDataStorage> fresh = NewStorage<XSessionDataStorageEnv>();
    EXPECT_EQ((Pairs{{L"GR\u00d6\u00dfE X", L"\u65e5\u672c"}}),
              ReadPairs(fresh.Get(), L"Mein Schl\u00fcssel\\\u041a\u043b\u044e\u0447").pairs);
    EXPECT_EQ((std::vector<std::wstring>{L"MEIN SCHL\u00dcSSEL/\u041a\u041b\u042e\u0427"}),
              ReadSubKeys(fresh.Get(), L"mein schl\u00fcssel", 0).names);
}

TEST_F(EnvironmentStorageTest, NullPointersAreAnsweredWithEPointer)
{
    ULONG count = 0;
    tagSESSIONDATAVALUE* list = nullptr;
    BSTR* names = nullptr;
    EXPECT_EQ(E_POINTER, storage->ReadData(nullptr, nullptr, &list));
    EXPECT_TRUE(::IsEqualGUID(CLSID_WQ_SessionDataStorageEnv, TakeErrorInfo().guid));
    EXPECT_EQ(E_POINTER, storage->ReadData(nullptr, &count, nullptr));
    EXPECT_EQ(E_POINTER, storage->GetSubKeys(nullptr, 1, nullptr, &names));
    EXPECT_EQ(E_POINTER, storage->GetSubKeys(nullptr, 1, &count, nullptr));
    EXPECT_EQ(E_POINTER, storage->StoreData(XWQComBSTR(L"nullkey"), 1, nullptr));
}

TEST_F(EnvironmentStorageTest, AsyncCallsAnswerSOkWithoutWritingTheResult)
{
    EXPECT_EQ(S_OK, storage->FlushAsyncStorage());
    HRESULT async = E_ABORT;
    EXPECT_EQ(S_OK, storage->GetLastErrorAsyncExecution(&async));
    EXPECT_EQ(E_ABORT, async);
}

TEST_F(EnvironmentStorageTest, AnswersItsOwnInterfacesAndSupportsErrorInfo)
{
    XComPtr<IWQ_SessionDataStorageEnv> env;
    EXPECT_EQ(S_OK, storage.As(env));
    XComPtr<ISupportErrorInfo> support;
    ASSERT_EQ(S_OK, storage.As(support));
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataStorageEnv));
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataStorage));
    EXPECT_EQ(S_FALSE, support->InterfaceSupportsErrorInfo(IID_IWQ_SessionDataStorageReg));
    XComPtr<IWQ_SessionDataStorageReg> reg;
    EXPECT_EQ(E_NOINTERFACE, storage.As(reg));
}

TEST_F(EnvironmentStorageTest, TheCopyIsFilledOnceThroughItsSlot)
{
    ScriptedEnvironmentStorage* object = nullptr;
    const XComPtr<IWQ_SessionDataStorage> scripted = NewScripted(object);
    ASSERT_TRUE(object);
    EXPECT_EQ(0, object->fills);
    ReadPairs(scripted.Get(), L"x");
    EXPECT_EQ(1, object->fills);
    ReadPairs(scripted.Get(), L"y");
    ReadSubKeys(scripted.Get(), L"", 1);
    StorePairs(scripted.Get(), L"z", {{L"v", L"1"}});
    ReadPairs(scripted.Get(), L"z");
    EXPECT_EQ(1, object->fills);
}

TEST_F(EnvironmentStorageTest, AFillThatFindsNothingEndsTheReadAndIsTriedAgain)
{
    ScriptedEnvironmentStorage* object = nullptr;
    const XComPtr<IWQ_SessionDataStorage> scripted = NewScripted(object);
    object->scripted = true;
    EXPECT_EQ(S_FALSE, ReadPairs(scripted.Get(), L"").hr);
    EXPECT_EQ(S_FALSE, ReadSubKeys(scripted.Get(), L"", 1).hr);
    EXPECT_EQ(2, object->fills);
    object->script = {{L"K/V", L"1"}};
    EXPECT_EQ((Pairs{{L"V", L"1"}}), ReadPairs(scripted.Get(), L"k").pairs);
    EXPECT_EQ(3, object->fills);
}

TEST_F(EnvironmentStorageTest, WithOnlyABCXAndAYTheSubKeysAreAAndABCWhenRecursive)
{
    ScriptedEnvironmentStorage* object = nullptr;
    const XComPtr<IWQ_SessionDataStorage> scripted = NewScripted(object);
    object->scripted = true;
    object->script = {{L"A/B/C/X", L"1"}, {L"A/Y", L"2"}};
    EXPECT_EQ((std::vector<std::wstring>{L"A", L"A/B/C"}), ReadSubKeys(scripted.Get(), L"", 1).names);
    EXPECT_EQ(std::vector<std::wstring>{L"A"}, ReadSubKeys(scripted.Get(), L"", 0).names);
}
