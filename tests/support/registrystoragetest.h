// Fixture of the registry storage tests: a registry storage and a root key of the test's own
// below HKEY_CURRENT_USER\Software, removed afterwards.
#pragma once

#include "storagetesthelpers.h"
#include "testenv.h"
#include "xsessiondatastoragereg.h"

#include <gtest/gtest.h>

// The hive numbers that Initialize compares with: the members' ordinal positions.
constexpr LONG kLocalMachine = 0;
constexpr LONG kCurrentUser = 1;
constexpr HRESULT kNotInitialized = static_cast<HRESULT>(0x8004080D);

class RegistryStorageTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        storage = NewStorage<XSessionDataStorageReg, IWQ_SessionDataStorageReg>();
        ASSERT_TRUE(storage);
        ClearLogBook();
    }

    static SESSIONDATAREGKEY Hive(LONG number) { return static_cast<SESSIONDATAREGKEY>(number); }

    // Initialize below the current user's hive with the test's root key.
    HRESULT Init(ULONG volatileKey = 0)
    {
        return storage->Initialize(Hive(kCurrentUser), XWQComBSTR(root.Path().c_str()), volatileKey);
    }
    IWQ_SessionDataStorage* Base() const { return storage.Get(); }

    TestRegistryRoot root;
    XComPtr<IWQ_SessionDataStorageReg> storage;
};
