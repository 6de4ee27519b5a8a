// Leak check of the registry and the environment storage: every string and array handed out
// by store, read, list and read-all cycles is freed by its receiver, nothing else stays live.
#include "mallocspy.h"
#include "registrystoragetest.h"
#include "xsessiondatastorageenv.h"

namespace
{
// One store/read/list/read-all cycle; the out values are freed by the helpers.
void Cycle(IWQ_SessionDataStorage* storage, int round)
{
    const std::wstring value = L"value " + std::to_wstring(round);
    EXPECT_EQ(S_OK, StorePairs(storage, L"Leak/Key", {{L"a", value}, {L"b", L"second"}}));
    EXPECT_EQ(S_OK, StorePairs(storage, L"Leak/Key/Sub", {{L"c", value}}));
    ReadPairs(storage, L"Leak/Key");
    ReadPairs(storage, L"Leak/Missing");
    ReadSubKeys(storage, L"Leak", 1);
    ReadSubKeys(storage, L"", 0);
    ReadAll(storage, L"Leak");
    ReadAll(storage, L"Nothing/Here");
}

void CheckCycles(IWQ_SessionDataStorage* storage)
{
    Cycle(storage, 0); // warm-up: the process-wide function names are made on first use
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int round = 1; round <= 15; ++round)
        Cycle(storage, round);
    EXPECT_EQ(0u, spy.Outstanding());
}
} // namespace

TEST_F(RegistryStorageTest, StoreReadListAndReadAllCyclesLeakNothing)
{
    ASSERT_EQ(S_OK, Init());
    CheckCycles(Base());
}

TEST_F(RegistryStorageTest, FailingCallsLeakNothing)
{
    const auto failing = [this]() {
        StorePairs(Base(), L"k", {{L"v", L"1"}});
        ReadPairs(Base(), L"k");
        ReadSubKeys(Base(), L"k", 1);
        ReadAll(Base(), L"k");
        storage->ReadData(nullptr, nullptr, nullptr);
    };
    failing(); // warm-up
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    for (int round = 0; round < 10; ++round)
        failing();
    TakeErrorInfo();
    EXPECT_EQ(0u, spy.Outstanding());
}

TEST(EnvironmentStorageLeaks, StoreReadListAndReadAllCyclesLeakNothing)
{
    Raw::RemoveKeyedVariables();
    ::SetEnvironmentVariableW(L"LEAK/KEY/A", L"preset");
    const XComPtr<IWQ_SessionDataStorage> storage = NewStorage<XSessionDataStorageEnv>();
    CheckCycles(storage.Get());
}
