// Fixture of the database storage tests: a storage over a recording root, with helpers that
// call it with caller-owned arrays and read its answers.
#pragma once

#include "recordingroot.h"
#include "storagetesthelpers.h"
#include "testenv.h"
#include "xsessiondatastoragedb.h"

#include <gtest/gtest.h>

// An owning reference to a recording root (created with one reference, which this takes over).
class RootRef
{
public:
    explicit RootRef(bool freeThreaded = true) : m_root(RecordingRoot::Create(freeThreaded)) {}
    ~RootRef()
    {
        if (m_root)
            m_root->Release();
    }
    RootRef(const RootRef&) = delete;
    RootRef& operator=(const RootRef&) = delete;
    RecordingRoot* operator->() const { return m_root; }
    RecordingRoot* Get() const { return m_root; }

private:
    RecordingRoot* m_root;
};

class StorageDbTest : public ::testing::Test
{
protected:
    void SetUp() override { storage = NewStorage<XSessionDataStorageDb, IWQ_SessionDataStorageDb>(); }

    // SetRoot, then SetRootKey (when rootKey is not null).
    void Bind(const wchar_t* rootKey)
    {
        ASSERT_EQ(S_OK, storage->SetRoot(root->Root()));
        if (rootKey)
        {
            ASSERT_EQ(S_OK, storage->SetRootKey(XWQComBSTR(rootKey)));
        }
    }
    IWQ_SessionDataStorage* Base() { return storage.Get(); }
    std::vector<std::string> Calls() const { return root->Calls(); }
    std::string LastCall() const
    {
        const std::vector<std::string> calls = root->Calls();
        return calls.empty() ? std::string() : calls.back();
    }

    RootRef root;
    XComPtr<IWQ_SessionDataStorageDb> storage;
};

// The root key as the root sees it: the key of the GetStringList call that ReadData(key) makes.
inline std::string KeySentFor(IWQ_SessionDataStorage* storage, RecordingRoot* root, const wchar_t* key)
{
    root->ClearCalls();
    ReadPairs(storage, key);
    const std::vector<std::string> calls = root->Calls();
    return calls.empty() ? std::string("<no call>") : calls.back();
}
