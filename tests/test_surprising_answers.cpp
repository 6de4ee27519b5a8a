// Answers of the module that it gives on purpose and that surprise a client, each found by the
// soak, shown through the registered classes as a client binds them:
//   a cached category lists only what its cache holds, so a transfer out of it copies only that;
//   an uncached category lists what its last write left in its working table, so a transfer out
//   of it right after a write copies only that value;
//   a deleted database key read before the flush is cached again from the database, and the cache
//   keeps answering it after the deletion has run, until it is emptied;
//   a database category bound in the multithreaded apartment answers RPC_E_WRONG_THREAD to a
//   synchronous call from a single-threaded apartment.
#include "XWQComBSTR.h"
#include "testenv.h"
#include "xcomtypes.h"
#include "xctlsession.h"

#include <gtest/gtest.h>

#include <thread>

namespace
{
class SurprisingAnswers : public ::testing::Test
{
protected:
    void SetUp() override
    {
        wchar_t folder[MAX_PATH] = {};
        ::GetTempPathW(MAX_PATH, folder);
        database = std::wstring(folder) + XCtlWide(app) + L".db";
        profile.bindings.clear();
        XCtlApplyBind("volatile=volatile", profile);
        XCtlApplyBind("user=registry:HKCU\\Software\\" + app + "\\Cached", profile);
        XCtlApplyBind("machine=registry:HKCU\\Software\\" + app + "\\Uncached;cache=no", profile);
        // A write interval far longer than a test: the pipe runs only when flushed.
        XCtlApplyBind("userdb=db:" + app + ";user;async=120;connection={sqlite:" + XCtlUtf8(database) + "}", profile);
        session = std::make_unique<XCtlSession>(profile);
    }
    void TearDown() override
    {
        session.reset();
        ::RegDeleteTreeW(HKEY_CURRENT_USER, (L"Software\\" + XCtlWide(app)).c_str());
        for (const wchar_t* suffix : {L"", L"-wal", L"-shm"})
            ::DeleteFileW((database + suffix).c_str());
    }
    IWQ_SessionDataMng* Mng() { return session->Manager(); }
    void Bind(const char* category) { session->Ensure(XCtlParseCategory(category)); }
    static SESSIONDATATYPE Cat(int number) { return static_cast<SESSIONDATATYPE>(number); }
    HRESULT Write(int category, const wchar_t* key, const wchar_t* name, const wchar_t* text)
    {
        XVariant value;
        value.Get().vt = VT_BSTR;
        value.Get().bstrVal = ::SysAllocString(text);
        return Mng()->WriteData(XWQComBSTR(key), XWQComBSTR(name), value.Get(), Cat(category));
    }
    std::wstring Read(int category, const wchar_t* key, const wchar_t* name)
    {
        XVariant value;
        const HRESULT hr = Mng()->GetData(XWQComBSTR(key), XWQComBSTR(name), VT_BSTR, &value.Get(), Cat(category));
        return hr == S_OK ? std::wstring(value.Get().bstrVal) : L"<none>";
    }
    // The names a category lists for a key, in order, joined with ",".
    std::wstring Names(int category, const wchar_t* key)
    {
        XValueArray list;
        Mng()->GetStringList(XWQComBSTR(key), list.CountAddress(), list.ItemsAddress(), Cat(category));
        std::wstring names;
        for (ULONG i = 0; i < list.Count(); ++i)
            names += (i ? L"," : L"") + std::wstring(list[i].bstrValueName);
        return names;
    }
    // A new storage of the category's place bound to it: a new layer with an empty cache.
    void Rebind(int category)
    {
        const XCtlStorageTarget& where = profile.bindings.at(category).second;
        const XComPtr<IWQ_SessionDataStorage> storage = session->NewStorage(where);
        ASSERT_EQ(S_OK, Mng()->SetStorage(storage.Get(), Cat(category), where.cached ? 1 : -1));
    }

    // n0 and n1 written to the cached registry category, then n2 through a new layer: its cache
    // holds n2 alone.
    void ThreeValuesTheLastThroughANewCache()
    {
        Bind("user");
        Bind("volatile");
        ASSERT_EQ(S_OK, Write(4, L"K", L"n0", L"a"));
        ASSERT_EQ(S_OK, Write(4, L"K", L"n1", L"b"));
        Rebind(4);
        ASSERT_EQ(S_OK, Write(4, L"K", L"n2", L"c"));
    }

    std::string app = "SurprisingAnswers-" + std::to_string(::GetCurrentProcessId());
    std::wstring database;
    XCtlProfile profile = XCtlDefaultProfile("SurprisingAnswers");
    std::unique_ptr<XCtlSession> session;
};
} // namespace

TEST_F(SurprisingAnswers, ACachedCategoryListsOnlyWhatItsCacheHoldsSoATransferCopiesOnlyThat)
{
    ThreeValuesTheLastThroughANewCache();
    EXPECT_EQ(L"n2", Names(4, L"K"));
    EXPECT_EQ(S_OK, Mng()->TransferDataFromTo(Cat(4), Cat(5), XWQComBSTR(L"K"), XWQComBSTR(L"K")));
    EXPECT_EQ(L"c", Read(5, L"K", L"n2"));
    EXPECT_EQ(L"<none>", Read(5, L"K", L"n0"));
    // The registry has all three all the same.
    EXPECT_EQ(L"a", Read(4, L"K", L"n0"));
}

TEST_F(SurprisingAnswers, UploadCacheFirstMakesATransferFromACachedCategoryCopyEveryValue)
{
    ThreeValuesTheLastThroughANewCache();
    ASSERT_EQ(S_OK, Mng()->UploadCache(XWQComBSTR(L"K"), Cat(4)));
    EXPECT_EQ(L"n0,n1,n2", Names(4, L"K"));
    EXPECT_EQ(S_OK, Mng()->TransferDataFromTo(Cat(4), Cat(5), XWQComBSTR(L"K"), XWQComBSTR(L"K")));
    EXPECT_EQ(L"a", Read(5, L"K", L"n0"));
    EXPECT_EQ(L"b", Read(5, L"K", L"n1"));
}

TEST_F(SurprisingAnswers, AnUncachedCategoryListsWhatItsLastWriteLeftSoATransferRightAfterCopiesOnlyThat)
{
    Bind("machine");
    Bind("volatile");
    ASSERT_EQ(S_OK, Write(3, L"K", L"n0", L"a"));
    ASSERT_EQ(S_OK, Write(3, L"K", L"n1", L"b"));
    EXPECT_EQ(L"a", Read(3, L"K", L"n0"));  // a read empties the working table
    ASSERT_EQ(S_OK, Write(3, L"K", L"n1", L"b2"));
    EXPECT_EQ(S_OK, Mng()->TransferDataFromTo(Cat(3), Cat(5), XWQComBSTR(L"K"), XWQComBSTR(L"K")));
    EXPECT_EQ(L"b2", Read(5, L"K", L"n1"));
    EXPECT_EQ(L"<none>", Read(5, L"K", L"n0"));
    // The list emptied the working table: the next one is the registry's whole key.
    EXPECT_EQ(L"n0,n1", Names(3, L"K"));
}

TEST_F(SurprisingAnswers, ADeletedDatabaseKeyReadBeforeTheFlushIsCachedAgainUntilTheCacheIsEmptied)
{
    Bind("userdb");
    ASSERT_EQ(S_OK, Write(2, L"K", L"n", L"v"));
    ASSERT_EQ(S_OK, Mng()->FlushAsyncStorage(Cat(2)));
    ASSERT_EQ(S_OK, Mng()->DeleteKey(XWQComBSTR(L"K"), Cat(2)));
    // The cache forgot the key; the deletion waits in the pipe, so the database still has it.
    EXPECT_EQ(L"v", Read(2, L"K", L"n"));
    ASSERT_EQ(S_OK, Mng()->FlushAsyncStorage(Cat(2)));
    EXPECT_EQ(L"v", Read(2, L"K", L"n")) << "the cache keeps the value read back before the deletion ran";
    ASSERT_EQ(S_OK, Mng()->FlushCache(Cat(2)));
    EXPECT_EQ(L"<none>", Read(2, L"K", L"n"));
}

TEST_F(SurprisingAnswers, ADatabaseCategoryBoundInTheMultithreadedApartmentAnswersWrongThreadInASingleThreadedOne)
{
    Bind("userdb");
    ASSERT_EQ(S_OK, Write(2, L"K", L"n", L"v"));
    ASSERT_EQ(S_OK, Mng()->FlushAsyncStorage(Cat(2)));
    ASSERT_EQ(S_OK, Mng()->FlushCache(Cat(2)));
    HRESULT fromSta = S_OK;
    std::thread sta([&] {
        ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        {
            XComPtr<IWQ_SessionDataMng> manager = XCtlCreate<IWQ_SessionDataMng>(L"WQSessionDataMng.WQSessionDataMng");
            XVariant value;
            fromSta = manager->GetData(XWQComBSTR(L"K"), XWQComBSTR(L"n"), VT_BSTR, &value.Get(), Cat(2));
        }
        ::CoUninitialize();
    });
    sta.join();
    EXPECT_EQ(RPC_E_WRONG_THREAD, fromSta);
    EXPECT_EQ(L"v", Read(2, L"K", L"n")) << "the apartment that bound it reads as before";
}
