// The database behind a root object: chosen with Open (or the configured default), shared with
// every root object of the process on the same database (one cache), and refused clearly when a
// connection text or a file is not usable.
#include "roottesthelpers.h"
#include "iotesthelpers.h"
#include "sqltesthelpers.h"
#include "testenv.h"
#include "xsessiondataioex.h"
#include "pgtesthelpers.h"
#include "xsqlerror.h"

#include <gtest/gtest.h>

namespace
{
std::wstring ConnectionOf(const XComPtr<IWQ_SessionDataIOEx>& root, HRESULT* hr = nullptr)
{
    BSTR text = nullptr;
    const HRESULT result = ConfigOf(root)->GetConnection(&text);
    if (hr)
        *hr = result;
    std::wstring out(text ? text : L"");
    ::SysFreeString(text);
    return out;
}

std::wstring Upper(std::wstring text)
{
    ::CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
    return text;
}
} // namespace

TEST(RootDatabase, RootObjectsOnOneDatabaseShareOneCache)
{
    TestDatabaseFile file;
    const XComPtr<IWQ_SessionDataIOEx> first = NewRootObject(file.Connection());
    const XComPtr<IWQ_SessionDataIOEx> second = NewRootObject(file.Connection());
    ASSERT_TRUE(first && second);
    EXPECT_TRUE(ReadsFromOneCache(first.Get(), second.Get(), file.Path()));
}

TEST(RootDatabase, SpellingsOfOneFileAreOneDatabase)
{
    TestDatabaseFile file;
    const XComPtr<IWQ_SessionDataIOEx> first = NewRootObject(file.Connection());
    HRESULT hr = S_OK;
    const XComPtr<IWQ_SessionDataIOEx> second = NewRootObject(L"SQLITE:" + Upper(file.Path()), &hr);
    ASSERT_TRUE(first && second) << std::hex << hr << " " << Utf8(TakeErrorInfo().description);
    EXPECT_EQ(ConnectionOf(first), ConnectionOf(second));
    EXPECT_EQ(L"sqlite:" + file.Path() + L"?synchronous=normal&busy_timeout=5000", ConnectionOf(first));
    EXPECT_TRUE(ReadsFromOneCache(first.Get(), second.Get(), file.Path()));
}

TEST(RootDatabase, ADatabaseOpenWithOtherOptionsIsRefused)
{
    TestDatabaseFile file;
    const XComPtr<IWQ_SessionDataIOEx> first = NewRootObject(file.Connection(L"?synchronous=full"));
    ASSERT_TRUE(first);
    HRESULT hr = S_OK;
    EXPECT_FALSE(NewRootObject(file.Connection(), &hr));
    EXPECT_EQ(E_INVALIDARG, hr);
    EXPECT_NE(std::wstring::npos, TakeErrorInfo().description.find(L"other options"));
    EXPECT_TRUE(NewRootObject(file.Connection(L"?busy_timeout=5000&synchronous=FULL")));
}

TEST(RootDatabase, AnUnusableConnectionIsAClearErrorAndTheRootKeepsItsDatabase)
{
    TestDatabaseFile file;
    TestDatabaseFile corrupt(L"-corrupt");
    ASSERT_TRUE(WriteGarbageFile(corrupt.Path()));
    TestDatabaseFile foreign(L"-foreign");
    {
        RawSqlite raw(foreign.Path());
        ASSERT_TRUE(raw.Execute("CREATE TABLE customers (id INTEGER);"));
    }
    const XComPtr<IWQ_SessionDataIOEx> root = NewRootObject(file.Connection());
    ASSERT_TRUE(root);
    ASSERT_EQ(S_OK, Write(root.Get(), L"k", L"n", L"kept"));
    const struct
    {
        std::wstring connection;
        HRESULT hr;
        const wchar_t* says;
    } cases[] = {
        {L"", E_INVALIDARG, L"empty"},
        {L"mysql:server=x", E_INVALIDARG, L"unknown connection scheme"},
        {L"sqlite:", E_INVALIDARG, L"names no database file"},
        {file.Connection(L"?cache=huge"), E_INVALIDARG, L"unknown option"},
        {corrupt.Connection(), XSqlError::kCorrupt, L"SQLite"},
        {foreign.Connection(), XSqlError::kForeign, L"not a session data database"},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(c.hr, ConfigOf(root)->Open(XWQComBSTR(c.connection.c_str()))) << Utf8(c.connection);
        const ErrorInfoText info = TakeErrorInfo();
        EXPECT_TRUE(info.present) << Utf8(c.connection);
        EXPECT_NE(std::wstring::npos, info.description.find(c.says)) << Utf8(info.description);
        EXPECT_EQ(L"kept", Read(root.Get(), L"k", L"n").value);
    }
    EXPECT_EQ(E_INVALIDARG, ConfigOf(root)->Open(nullptr));
    EXPECT_EQ(E_POINTER, ConfigOf(root)->GetConnection(nullptr));
    EXPECT_EQ(E_POINTER, ConfigOf(root)->GetServerProcessId(nullptr));
}

TEST(RootDatabase, OpenSwitchesTheRootToAnotherDatabase)
{
    TestDatabaseFile first;
    TestDatabaseFile second(L"-second");
    const XComPtr<IWQ_SessionDataIOEx> root = NewRootObject(first.Connection());
    ASSERT_TRUE(root);
    ASSERT_EQ(S_OK, Write(root.Get(), L"k", L"n", L"first"));
    ASSERT_EQ(S_OK, ConfigOf(root)->Open(XWQComBSTR(second.Connection().c_str())));
    EXPECT_EQ(S_FALSE, Read(root.Get(), L"k", L"n").hr);
    ASSERT_EQ(S_OK, Write(root.Get(), L"k", L"n", L"second"));
    RawSqlite raw(first.Path());
    EXPECT_EQ(std::vector<std::string>{"first"}, raw.Rows("SELECT value FROM sdm_values"));
}

TEST(RootDatabase, TheRootKeepsItsOwnStorage)
{
    TestDatabaseFile file;
    const XComPtr<IWQ_SessionDataIOEx> root = NewRootObject(file.Connection());
    ASSERT_TRUE(root);
    EXPECT_EQ(E_NOTIMPL, root->SetStorage(nullptr));
    EXPECT_NE(std::wstring::npos, TakeErrorInfo().description.find(L"Open"));
    EXPECT_EQ(S_OK, Write(root.Get(), L"k", L"n", L"v"));
}

TEST(RootDatabase, InProcessTheServerIsThisProcess)
{
    TestDatabaseFile file;
    const XComPtr<IWQ_SessionDataIOEx> root = NewRootObject(file.Connection());
    ASSERT_TRUE(root);
    LONG id = 0;
    EXPECT_EQ(S_OK, ConfigOf(root)->GetServerProcessId(&id));
    EXPECT_EQ(static_cast<LONG>(::GetCurrentProcessId()), id);
}

// A value behaves through the root as through the module's cached extended layer over the SQL
// storage in process: every answer the same, HRESULT and value.
TEST(RootDatabase, ValuesBehaveAsThroughTheExtendedLayerInProcess)
{
    TestDatabaseFile rootFile;
    TestDatabaseFile layerFile(L"-layer");
    const XComPtr<IWQ_SessionDataIOEx> root = NewRootObject(rootFile.Connection());
    const XComPtr<IWQ_SessionDataIOEx> layer = NewObject<XSessionDataIOEx, IWQ_SessionDataIOEx>();
    const XComPtr<IWQ_SessionDataStorageEx> storage = NewSqlStorage(layerFile.Connection());
    ASSERT_TRUE(root && layer && storage);
    ASSERT_EQ(S_OK, layer->SetStorage(storage.Get()));
    const std::wstring nul(L"a\0b", 3);
    const struct
    {
        const wchar_t* key;
        const wchar_t* name;
        std::wstring value;
    } writes[] = {
        {L"Suite\\App", L"Theme", L"Dark"}, {L"suite/app", L"theme", L"Light"}, {L"Suite/%_'\"", L"n", L"wild"},
        {L"Emoji/\U0001F600", L"\U0001F600", L"\U0001F600"}, {L"k", L"", L"empty name"}, {L"k", L"e", L""},
        {L"k", L"nul", nul}, {L"", L"n", L"root"}, {nullptr, L"n", L"null key"}, {L"k", nullptr, L"null name"},
    };
    for (const auto& w : writes)
    {
        const XWQComBSTR key(w.key);
        const XWQComBSTR name(w.name);
        const XWQComBSTR value(w.value.c_str(), static_cast<UINT>(w.value.size()));
        const BSTR k = w.key ? static_cast<BSTR>(key) : nullptr;
        const BSTR n = w.name ? static_cast<BSTR>(name) : nullptr;
        EXPECT_EQ(layer->WriteData(k, n, value), root->WriteData(k, n, value)) << Utf8(w.value);
    }
    for (const auto& w : writes)
    {
        if (!w.key || !w.name)
            continue;
        const ReadResult viaLayer = Read(layer.Get(), w.key, w.name);
        const ReadResult viaRoot = Read(root.Get(), w.key, w.name);
        EXPECT_EQ(viaLayer.hr, viaRoot.hr) << Utf8(w.key);
        EXPECT_EQ(viaLayer.value, viaRoot.value) << Utf8(w.key);
    }
    EXPECT_EQ(SubKeysOf(layer.Get(), L"", 1), SubKeysOf(root.Get(), L"", 1));
    EXPECT_EQ(AllDataOf(layer.Get(), L"suite"), AllDataOf(root.Get(), L"suite"));
    EXPECT_EQ(List(layer.Get(), L"K").records, List(root.Get(), L"K").records);
}

// Root objects on one PostgreSQL database through two connections (as two servers would be)
// read what the other wrote at once: nothing is cached for a database that others write.
TEST(RootDatabase, RootObjectsOnPostgresReadWhatAnotherConnectionWroteAtOnce)
{
    PgTestSchema schema;
    const XComPtr<IWQ_SessionDataIOEx> first = NewRootObject(schema.Connection());
    // The same database in another spelling: a connection of its own.
    const XComPtr<IWQ_SessionDataIOEx> other = NewRootObject(L"odbc:" + schema.OdbcText() + L"UseDeclareFetch=0;");
    ASSERT_TRUE(first && other);
    for (int round = 0; round < 20; ++round)
    {
        const std::wstring value = std::to_wstring(round);
        ASSERT_EQ(S_OK, Write(first.Get(), L"Shared/Key", L"n", value.c_str()));
        EXPECT_EQ(value, Read(other.Get(), L"Shared/Key", L"n").value);
        ASSERT_EQ(S_OK, Write(other.Get(), L"Shared/Key", L"m", value.c_str()));
        EXPECT_EQ(value, Read(first.Get(), L"Shared/Key", L"m").value);
    }
    // Also behind both: a change made in the database directly is read at once.
    ASSERT_TRUE(schema.Raw().Execute("UPDATE sdm_values SET value = 'direct' WHERE name = 'n'"));
    EXPECT_EQ(L"direct", Read(first.Get(), L"Shared/Key", L"n").value);
    EXPECT_EQ(L"direct", Read(other.Get(), L"Shared/Key", L"n").value);
}

TEST(RootDatabase, APostgresConnectionIsShownWithItsPasswordMasked)
{
    PgTestSchema schema;
    const XComPtr<IWQ_SessionDataIOEx> root = NewRootObject(schema.Connection());
    ASSERT_TRUE(root);
    const std::wstring shown = ConnectionOf(root);
    EXPECT_EQ(0u, shown.find(L"odbc:Driver={PostgreSQL Unicode};")) << Utf8(shown);
    EXPECT_NE(std::wstring::npos, shown.find(L"Pwd=***;")) << Utf8(shown);
    const std::wstring text = PgTestConnectionText();
    const size_t pwd = text.find(L"Pwd=") + 4;
    EXPECT_EQ(std::wstring::npos, shown.find(text.substr(pwd, text.find(L';', pwd) - pwd)));
}

// Through a root on PostgreSQL (nothing cached), a value name is one name in every spelling, and
// lists come back with the names lower-cased, as through a cached root.
TEST(RootDatabase, OnPostgresTwoSpellingsOfANameAreOneValue)
{
    PgTestSchema schema;
    const XComPtr<IWQ_SessionDataIOEx> root = NewRootObject(schema.Connection());
    ASSERT_TRUE(root);
    ASSERT_EQ(S_OK, Write(root.Get(), L"Window", L"Width", L"1"));
    ASSERT_EQ(S_OK, Write(root.Get(), L"window", L"WIDTH", L"2"));
    EXPECT_EQ(L"2", Read(root.Get(), L"WINDOW", L"width").value);
    const ListResult list = List(root.Get(), L"Window");
    EXPECT_EQ(S_OK, list.hr);
    EXPECT_EQ(std::vector<std::string>{"width=2"}, list.records);
    EXPECT_EQ(std::vector<std::string>{"width|2"}, schema.Raw().Rows("SELECT name, value FROM sdm_values"));
}
