// The bad-input matrix of the IO layers, the storages and the storage root, table-driven, through
// the registered classes, each bound as a client binds it:
//   IO layers: cached and uncached over the registry, extended over a database storage, the
//   database layer over a storage root;
//   storages: volatile, registry, environment, database (over the in-process storage root, on a
//   SQLite file of the test's own);
//   the storage root itself and its configuration interface.
// Each row is one call with one bad input and the answer expected of each kind (a row that does
// not apply to a kind is skipped there). A failure must come with COM error info. After every
// row the value written before it is still there, and at the end nothing was written outside the
// test's own registry key, environment variables and file.
#include "XWQComBSTR.h"
#include "outsidenames.h"
#include "testenv.h"
#include "xcomtypes.h"
#include "xctlsession.h"
#include "xstorageroot_h.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace
{
// The answer of a row for a kind that the row does not apply to.
const HRESULT kSkip = 0x7FFFFFFF;

std::wstring Text(const wchar_t* text, size_t length)
{
    return std::wstring(text, length);
}
XWQComBSTR Bstr(const std::wstring& text)
{
    return XWQComBSTR(text.c_str(), static_cast<unsigned>(text.size()));
}
const std::wstring kNulKey = Text(L"Matrix/K\0x", 10);
const std::wstring kNulName = Text(L"n\0x", 3);
const std::wstring kNulValue = Text(L"v\0x", 3);

std::wstring DeepKey()
{
    std::wstring deep = L"Matrix";
    for (int level = 0; level < 300; ++level)
        deep += L"/L" + std::to_wstring(level);
    return deep;
}

// Records of name=value pairs for a list write (owns its strings).
class Records
{
public:
    using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;
    explicit Records(const Pairs& pairs)
    {
        for (const auto& [name, value] : pairs)
            m_records.push_back({Bstr(name).Detach(), Bstr(value).Detach()});
    }
    ~Records()
    {
        for (auto& record : m_records)
        {
            ::SysFreeString(record.bstrValueName);
            ::SysFreeString(record.bstrValue);
        }
    }
    ULONG Count() const { return static_cast<ULONG>(m_records.size()); }
    tagSESSIONDATAVALUE* Data() { return m_records.data(); }

private:
    std::vector<tagSESSIONDATAVALUE> m_records;
};

struct Row
{
    const char* name;
    std::function<HRESULT()> call;
    std::map<std::string, HRESULT> expected;  // by kind
    HRESULT otherwise;                        // for the kinds not named
};

class ClassMatrix : public ::testing::Test
{
protected:
    void SetUp() override
    {
        before = OutsideNames();
        wchar_t folder[MAX_PATH] = {};
        ::GetTempPathW(MAX_PATH, folder);
        database = std::wstring(folder) + XCtlWide(app) + L".db";
        root = XCtlCreate<IWQ_SessionDataIOEx>(L"WQSessionDataMng.WQ_SessionDataStorageRoot");
        XComPtr<IWQ_SessionDataRootConfig> config;
        ASSERT_EQ(S_OK, root.As(config));
        ASSERT_EQ(S_OK, config->Open(Bstr(L"sqlite:" + database)));
    }
    void TearDown() override
    {
        ios.clear();
        storages.clear();
        root.Reset();
        ::RegDeleteTreeW(HKEY_CURRENT_USER, (L"Software\\" + XCtlWide(app)).c_str());
        for (const wchar_t* suffix : {L"", L"-wal", L"-shm"})
            ::DeleteFileW((database + suffix).c_str());
        // Nothing outside the test's own names (the environment's variables of the test are gone
        // with the test's process; they all begin with MATRIX/).
        for (const std::wstring& name : AddedOutside(before, OutsideNames(), {L"env MATRIX/"}))
            ADD_FAILURE() << "written outside the test's own names: " << XCtlUtf8(name);
    }

    XComPtr<IWQ_SessionDataStorage> Registry()
    {
        auto registry = XCtlCreate<IWQ_SessionDataStorageReg>(L"WQSessionDataMng.WQ_SessionDataStorageReg");
        EXPECT_EQ(S_OK, registry->Initialize(static_cast<SESSIONDATAREGKEY>(1), Bstr(L"Software\\" + XCtlWide(app)), 0));
        return XComPtr<IWQ_SessionDataStorage>(registry.Get());
    }
    XComPtr<IWQ_SessionDataStorage> Database()
    {
        auto storage = XCtlCreate<IWQ_SessionDataStorageDb>(L"WQSessionDataMng.WQ_SessionDataStorageDb");
        EXPECT_EQ(S_OK, storage->SetRoot(root.Get()));
        EXPECT_EQ(S_OK, storage->SetRootKey(Bstr(XCtlWide(app))));
        return XComPtr<IWQ_SessionDataStorage>(storage.Get());
    }
    XComPtr<IWQ_SessionDataIO> Layer(const wchar_t* progId, const XComPtr<IWQ_SessionDataStorage>& storage)
    {
        auto io = XCtlCreate<IWQ_SessionDataIO>(progId);
        EXPECT_EQ(S_OK, io->SetStorage(storage.Get()));
        return io;
    }
    // Every kind of IO layer, bound.
    void MakeLayers()
    {
        ios["cached"] = Layer(L"WQSessionDataMng.WQ_SessionDataIOCache", Registry());
        ios["uncached"] = Layer(L"WQSessionDataMng.WQ_SessionDataIONoCache", Registry());
        ios["extended"] = Layer(L"WQSessionDataMng.SessionDataIOEx", Database());
        auto overRoot = XCtlCreate<IWQ_SessionDataIOExDB>(L"WQSessionDataMng.WQ_SessionDataIOExDB");
        EXPECT_EQ(S_OK, overRoot->SetRoot(root.Get()));
        ios["database"] = XComPtr<IWQ_SessionDataIO>(overRoot.Get());
    }
    // Every kind of storage, ready.
    void MakeStorages()
    {
        storages["volatile"] =
            XComPtr<IWQ_SessionDataStorage>(XCtlCreate<IWQ_SessionDataStorage>(L"WQSessionDataMng.WQ_SessionDataStorageVolatile"));
        storages["registry"] = Registry();
        storages["environment"] =
            XComPtr<IWQ_SessionDataStorage>(XCtlCreate<IWQ_SessionDataStorage>(L"WQSessionDataMng.WQ_SessionDataStorageEnv"));
        storages["database"] = Database();
    }

    // Runs every row for every kind: the answer, the error info of a failure, the value written
    // before still there (read, where a kind can read, by readBack).
    template <class Subject>
    void Run(std::map<std::string, Subject>& subjects, const std::function<std::vector<Row>(Subject&)>& rowsOf,
             const std::function<HRESULT(Subject&)>& writeSentinel,
             const std::function<std::wstring(const std::string&, Subject&)>& readSentinel)
    {
        int rows = 0;
        for (auto& [kind, subject] : subjects)
        {
            ASSERT_EQ(S_OK, writeSentinel(subject)) << kind;
            for (const Row& row : rowsOf(subject))
            {
                const auto named = row.expected.find(kind);
                const HRESULT expected = named == row.expected.end() ? row.otherwise : named->second;
                if (expected == kSkip)
                    continue;
                TakeErrorInfo();
                std::fprintf(stderr, "%-12s %-58s ", kind.c_str(), row.name);
                const HRESULT hr = row.call();
                const ErrorInfoText info = TakeErrorInfo();
                EXPECT_EQ(expected, hr) << kind << ": " << row.name;
                // A method a class does not implement answers E_NOTIMPL alone.
                if (FAILED(hr) && hr != E_NOTIMPL)
                {
                    EXPECT_TRUE(info.present) << kind << ": " << row.name << ": no error info";
                }
                EXPECT_EQ(L"before", readSentinel(kind, subject)) << kind << ": " << row.name;
                std::fprintf(stderr, "0x%08lX %s\n", static_cast<unsigned long>(hr),
                             FAILED(hr) ? XCtlUtf8(info.description).c_str() : "");
                ++rows;
            }
        }
        std::printf("%d rows\n", rows);
    }

    std::string app = "MatrixClasses-" + std::to_string(::GetCurrentProcessId());
    std::wstring database;
    std::set<std::wstring> before;
    XComPtr<IWQ_SessionDataIOEx> root;
    std::map<std::string, XComPtr<IWQ_SessionDataIO>> ios;
    std::map<std::string, XComPtr<IWQ_SessionDataStorage>> storages;
};

// The rows of an IO layer.
std::vector<Row> LayerRows(IWQ_SessionDataIO* io)
{
    XComPtr<IWQ_SessionDataIOEx> ex;
    io->QueryInterface(__uuidof(IWQ_SessionDataIOEx), reinterpret_cast<void**>(ex.ReleaseAndGetAddressOf()));
    const auto write = [io](const std::wstring& key, const std::wstring& name, const std::wstring& value) {
        return io->WriteData(Bstr(key), Bstr(name), Bstr(value));
    };
    const auto extended = [&](HRESULT hr) {
        return std::map<std::string, HRESULT>{{"extended", hr}, {"database", hr}};
    };
    return {
        {"GetData: null out pointer",
         [io] { return io->GetData(Bstr(L"Matrix/S"), Bstr(L"n"), nullptr); },
         {{"uncached", kSkip}},  // the uncached layer checks no pointer there
         E_POINTER},
        {"GetData: empty name", [io] { BSTR v = nullptr; return io->GetData(Bstr(L"Matrix/S"), Bstr(L""), &v); }, {}, S_FALSE},
        {"GetData: NUL in the key", [io] { BSTR v = nullptr; return io->GetData(Bstr(kNulKey), Bstr(L"n"), &v); }, {}, E_INVALIDARG},
        {"GetData: NUL in the name", [io] { BSTR v = nullptr; return io->GetData(Bstr(L"Matrix/S"), Bstr(kNulName), &v); }, {}, E_INVALIDARG},
        {"GetStringList: null count", [io] { tagSESSIONDATAVALUE* l = nullptr; return io->GetStringList(Bstr(L"Matrix/S"), nullptr, &l); }, {}, E_POINTER},
        {"GetStringList: null list", [io] { ULONG c = 0; return io->GetStringList(Bstr(L"Matrix/S"), &c, nullptr); }, {}, E_POINTER},
        {"GetStringList: NUL in the key",
         [io] { XValueArray l; return io->GetStringList(Bstr(kNulKey), l.CountAddress(), l.ItemsAddress()); }, {}, E_INVALIDARG},
        {"WriteData: empty name", [write] { return write(L"Matrix/S", L"", L"v"); }, {}, S_FALSE},
        {"WriteData: NUL in the key", [write] { return write(kNulKey, L"n", L"v"); }, {}, E_INVALIDARG},
        {"WriteData: NUL in the name", [write] { return write(L"Matrix/S", kNulName, L"v"); }, {}, E_INVALIDARG},
        {"WriteData: NUL in the value (kept where the storage can hold it)", [write] { return write(L"Matrix/V", L"n", kNulValue); },
         {{"cached", E_INVALIDARG}, {"uncached", E_INVALIDARG}}, S_OK},
        {"WriteData: a value of 1 MB", [write] { return write(L"Matrix/V", L"n", std::wstring(1 << 20, L'x')); }, {}, S_OK},
        {"WriteData: a key of 300 levels", [write] { return write(DeepKey(), L"n", L"deep"); }, {}, S_OK},
        {"WriteStringList: no records", [io] { return io->WriteStringList(Bstr(L"Matrix/S"), 0, nullptr); }, {}, S_FALSE},
        {"WriteStringList: a count and no records", [io] { return io->WriteStringList(Bstr(L"Matrix/S"), 2, nullptr); }, {}, E_POINTER},
        {"WriteStringList: a record with NUL in its name",
         [io] { Records r(Records::Pairs{{L"a", L"1"}, {kNulName, L"2"}}); return io->WriteStringList(Bstr(L"Matrix/L"), r.Count(), r.Data()); },
         {}, E_INVALIDARG},
        {"WriteStringList: a record with an empty name",
         [io] { Records r(Records::Pairs{{L"", L"2"}}); return io->WriteStringList(Bstr(L"Matrix/L"), r.Count(), r.Data()); }, {}, S_FALSE},
        {"WriteStringList: NUL in the key",
         [io] { Records r(Records::Pairs{{L"a", L"1"}}); return io->WriteStringList(Bstr(kNulKey), r.Count(), r.Data()); }, {}, E_INVALIDARG},
        {"GetSubKeys: null count", [io] { BSTR* l = nullptr; return io->GetSubKeys(Bstr(L"Matrix"), 0, nullptr, &l); }, {}, E_POINTER},
        {"GetSubKeys: null list", [io] { ULONG c = 0; return io->GetSubKeys(Bstr(L"Matrix"), 1, &c, nullptr); }, {}, E_POINTER},
        {"GetAllData: null count",
         [io] { tagKEY_SESSIONDATAVALUE* l = nullptr; return io->GetAllData(Bstr(L"Matrix"), nullptr, &l); }, {}, E_POINTER},
        {"GetAllData: null list", [io] { ULONG c = 0; return io->GetAllData(Bstr(L"Matrix"), &c, nullptr); }, {}, E_POINTER},
        {"SaveData: NUL in the name (where it saves nothing, nothing is checked)",
         [io] { return io->SaveData(Bstr(L"Matrix/S"), Bstr(kNulName)); },
         {{"database", S_OK}, {"extended", S_OK}, {"root", S_OK}}, E_INVALIDARG},
        {"FlushCache: a category outside the enumeration", [io] { return io->FlushCache(static_cast<SESSIONDATATYPE>(-7)); }, {}, S_OK},
        {"UploadCache: NUL in the key", [io] { return io->UploadCache(Bstr(kNulKey)); }, {}, E_INVALIDARG},
        {"SetStorage: null on a bound layer", [io] { return io->SetStorage(nullptr); },
         {{"database", E_NOTIMPL}, {"root", E_NOTIMPL}, {"extended", E_INVALIDARG}}, S_OK},
        {"DeleteKey: NUL in the key", [ex] { return ex->DeleteKey(Bstr(kNulKey)); }, extended(E_INVALIDARG), kSkip},
        {"GetObjectData: NUL in the name",
         [ex] { BSTR v = nullptr; return ex->GetObjectData(nullptr, Bstr(L"Matrix/S"), Bstr(kNulName), &v); },
         extended(E_INVALIDARG), kSkip},
    };
}

// The value written through a layer before its rows, and read back after each.
HRESULT WriteLayerSentinel(XComPtr<IWQ_SessionDataIO>& io)
{
    return io->WriteData(Bstr(L"Matrix/S"), Bstr(L"n"), Bstr(L"before"));
}
std::wstring ReadLayerSentinel(const std::string&, XComPtr<IWQ_SessionDataIO>& io)
{
    BSTR value = nullptr;
    const HRESULT hr = io->GetData(Bstr(L"Matrix/S"), Bstr(L"n"), &value);
    const std::wstring text = hr == S_OK ? std::wstring(XBstrView(value)) : L"<none>";
    ::SysFreeString(value);
    return text;
}

// The rows of a storage. (The volatile storage checks no out pointer: a null one is the caller's
// fault there, on purpose, so those rows skip it.)
std::vector<Row> StorageRows(IWQ_SessionDataStorage* storage)
{
    const auto store = [storage](const std::wstring& key, const Records::Pairs& pairs) {
        Records r(pairs);
        return storage->StoreData(Bstr(key), r.Count(), r.Data());
    };
    return {
        {"StoreData: a count and no records", [storage] { return storage->StoreData(Bstr(L"Matrix/S"), 3, nullptr); },
         {{"volatile", S_OK}}, E_POINTER},
        {"StoreData: NUL in the key", [store] { return store(kNulKey, {{L"n", L"v"}}); }, {{"volatile", S_OK}}, E_INVALIDARG},
        {"StoreData: NUL in a name", [store] { return store(L"Matrix/S", {{kNulName, L"v"}}); }, {{"volatile", S_OK}}, E_INVALIDARG},
        {"StoreData: NUL in a value (kept where the storage can hold it)", [store] { return store(L"Matrix/V", {{L"n", kNulValue}}); },
         {{"volatile", S_OK}, {"database", S_OK}}, E_INVALIDARG},
        {"StoreData: a value past the environment's limit",
         [store] { return store(L"Matrix/V", {{L"n", std::wstring(40000, L'e')}}); }, {{"environment", E_INVALIDARG}}, S_OK},
        {"ReadData: null count", [storage] { tagSESSIONDATAVALUE* l = nullptr; return storage->ReadData(Bstr(L"Matrix/S"), nullptr, &l); },
         {{"volatile", kSkip}}, E_POINTER},
        {"ReadData: null list", [storage] { ULONG c = 0; return storage->ReadData(Bstr(L"Matrix/S"), &c, nullptr); },
         {{"volatile", kSkip}}, E_POINTER},
        {"ReadData: NUL in the key",
         [storage] { XValueArray l; return storage->ReadData(Bstr(kNulKey), l.CountAddress(), l.ItemsAddress()); },
         {{"volatile", S_FALSE}}, E_INVALIDARG},
        {"GetSubKeys: null count", [storage] { BSTR* l = nullptr; return storage->GetSubKeys(Bstr(L"Matrix"), 0, nullptr, &l); },
         {{"volatile", kSkip}}, E_POINTER},
        {"GetSubKeys: null list", [storage] { ULONG c = 0; return storage->GetSubKeys(Bstr(L"Matrix"), 0, &c, nullptr); },
         {{"volatile", kSkip}}, E_POINTER},
        {"ReadAllData: null count",
         [storage] { tagKEY_SESSIONDATAVALUE* l = nullptr; return storage->ReadAllData(Bstr(L"Matrix"), nullptr, &l); },
         {{"volatile", kSkip}}, E_POINTER},
        {"ReadAllData: null list", [storage] { ULONG c = 0; return storage->ReadAllData(Bstr(L"Matrix"), &c, nullptr); },
         {{"volatile", kSkip}}, E_POINTER},
        {"GetLastErrorAsyncExecution: null out pointer", [storage] { return storage->GetLastErrorAsyncExecution(nullptr); },
         {{"database", E_POINTER}}, S_OK},
        {"FlushAsyncStorage", [storage] { return storage->FlushAsyncStorage(); }, {}, S_OK},
    };
}
} // namespace

TEST_F(ClassMatrix, EveryIOLayerAnswersBadInputAsItsTableSaysAndKeepsWhatWasWritten)
{
    MakeLayers();
    Run<XComPtr<IWQ_SessionDataIO>>(
        ios, [](XComPtr<IWQ_SessionDataIO>& io) { return LayerRows(io.Get()); },
        WriteLayerSentinel, ReadLayerSentinel);
}

TEST_F(ClassMatrix, EveryStorageAnswersBadInputAsItsTableSaysAndKeepsWhatWasWritten)
{
    MakeStorages();
    Run<XComPtr<IWQ_SessionDataStorage>>(
        storages, [](XComPtr<IWQ_SessionDataStorage>& storage) { return StorageRows(storage.Get()); },
        [](XComPtr<IWQ_SessionDataStorage>& storage) {
            Records r(Records::Pairs{{L"n", L"before"}});
            return storage->StoreData(Bstr(L"Matrix/S"), r.Count(), r.Data());
        },
        [](const std::string& kind, XComPtr<IWQ_SessionDataStorage>& storage) {
            if (kind == "volatile")
                return std::wstring(L"before");  // the volatile storage keeps nothing, on purpose
            XValueArray list;
            if (storage->ReadData(Bstr(L"Matrix/S"), list.CountAddress(), list.ItemsAddress()) != S_OK)
                return std::wstring(L"<none>");
            for (ULONG i = 0; i < list.Count(); ++i)
                if (XLowered(XBstrView(list[i].bstrValueName)) == L"n")  // the environment upper-cases it
                    return std::wstring(XBstrView(list[i].bstrValue));
            return std::wstring(L"<none>");
        });
}

TEST_F(ClassMatrix, TheStorageRootAnswersBadInputAsItsTableSaysAndKeepsWhatWasWritten)
{
    IWQ_SessionDataIOEx* io = root.Get();
    XComPtr<IWQ_SessionDataRootConfig> config;
    ASSERT_EQ(S_OK, XCtlCreate<IWQ_SessionDataIOEx>(L"WQSessionDataMng.WQ_SessionDataStorageRoot").As(config));
    IWQ_SessionDataRootConfig* other = config.Get();
    std::map<std::string, XComPtr<IWQ_SessionDataIO>> subjects{{"root", XComPtr<IWQ_SessionDataIO>(io)}};
    Run<XComPtr<IWQ_SessionDataIO>>(
        subjects,
        [&](XComPtr<IWQ_SessionDataIO>&) {
            std::vector<Row> rows = LayerRows(io);
            const std::vector<Row> own = {
                {"Open: an empty text", [other] { return other->Open(Bstr(L"")); }, {}, E_INVALIDARG},
                {"Open: an unknown engine", [other] { return other->Open(Bstr(L"nosuch:x")); }, {}, E_INVALIDARG},
                {"Open: NUL in the text", [other] { return other->Open(Bstr(Text(L"sqlite:a\0b", 10))); }, {}, E_INVALIDARG},
                {"GetConnection: null out pointer", [other] { return other->GetConnection(nullptr); }, {}, E_POINTER},
                {"GetServerProcessId: null out pointer", [other] { return other->GetServerProcessId(nullptr); }, {}, E_POINTER},
                {"GetDefaultConnection: null out pointer", [other] { return other->GetDefaultConnection(nullptr); }, {}, E_POINTER},
                {"SetDefaultConnection: an unknown engine", [other] { return other->SetDefaultConnection(Bstr(L"nosuch:x")); },
                 {}, E_INVALIDARG},
            };
            rows.insert(rows.end(), own.begin(), own.end());
            return rows;
        },
        WriteLayerSentinel, ReadLayerSentinel);
}
