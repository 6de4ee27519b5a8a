// The SQL storage on PostgreSQL (through ODBC): its schema, connection texts and the failures
// to connect (each named, none showing the password), the bounded waits, and a connection that
// the server ended being made again without the caller seeing it.
#include "pgtesthelpers.h"
#include "sqltesthelpers.h"
#include "testenv.h"
#include "xodbcconnection.h"
#include "xsqlconnect.h"
#include "xsqlerror.h"

#include <gtest/gtest.h>
#include <winsock2.h>

#include <chrono>
#include <thread>

namespace
{
// The test connection text with one attribute's value replaced (or the attribute added).
std::wstring WithAttribute(std::wstring text, const std::wstring& key, const std::wstring& value)
{
    const size_t at = text.find(key + L"=");
    if (at == std::wstring::npos)
        return text + key + L"=" + value + L";";
    const size_t end = text.find(L';', at);
    return text.replace(at, end - at, key + L"=" + value);
}

const wchar_t kSecret[] = L"S3cret-never-shown";

bool ShowsSecret(const std::wstring& text)
{
    return text.find(kSecret) != std::wstring::npos;
}

bool LogShowsSecret()
{
    const std::string secret(kSecret, kSecret + std::wcslen(kSecret));
    for (const std::string& line : ReadLogBook())
        if (line.find(secret) != std::string::npos)
            return true;
    return false;
}

// A TCP port on 127.0.0.1 that takes connections and never answers (a server that hangs).
class SilentServer
{
public:
    SilentServer()
    {
        WSADATA data;
        ::WSAStartup(MAKEWORD(2, 2), &data);
        m_socket = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(m_socket, 8);
        int size = sizeof address;
        ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size);
        m_port = ntohs(address.sin_port);
    }
    ~SilentServer()
    {
        ::closesocket(m_socket);
        ::WSACleanup();
    }
    int Port() const { return m_port; }

private:
    SOCKET m_socket = INVALID_SOCKET;
    int m_port = 0;
};
} // namespace

TEST(PostgresSchema, ANewDatabaseGetsTheCurrentSchemaWithOrdinalKeysAndTheParentIndex)
{
    PgTestSchema schema;
    ASSERT_TRUE(NewSqlStorage(schema.Connection()));
    EXPECT_EQ(std::vector<std::string>{"2"}, schema.Raw().Rows("SELECT version FROM sdm_schema"));
    EXPECT_EQ((std::vector<std::string>{"sdm_keys", "sdm_meta", "sdm_schema", "sdm_values"}),
              schema.Raw().Rows("SELECT table_name FROM information_schema.tables WHERE table_schema = '" +
                                schema.Name() + "' ORDER BY table_name"));
    EXPECT_EQ((std::vector<std::string>{"key_norm|C", "parent_norm|C"}),
              schema.Raw().Rows("SELECT column_name, collation_name FROM information_schema.columns WHERE "
                                "table_schema = '" + schema.Name() + "' AND table_name = 'sdm_keys' AND "
                                "column_name LIKE '%norm' ORDER BY column_name"));
    EXPECT_EQ(std::vector<std::string>{"sdm_keys_parent"},
              schema.Raw().Rows("SELECT indexname FROM pg_indexes WHERE schemaname = '" + schema.Name() +
                                "' AND indexname NOT LIKE '%pkey'"));
}

TEST(PostgresSchema, ASchemaOfTheFirstVersionIsMigratedAndKeepsItsData)
{
    PgTestSchema schema;
    ASSERT_TRUE(schema.Raw().Execute(
        "CREATE TABLE sdm_schema (version integer NOT NULL); INSERT INTO sdm_schema VALUES (1);"
        "CREATE TABLE sdm_keys (scope text COLLATE \"C\" NOT NULL, key_norm text COLLATE \"C\" NOT NULL, "
        "key_text text NOT NULL, parent_norm text COLLATE \"C\" NOT NULL, PRIMARY KEY (scope, key_norm));"
        "CREATE INDEX sdm_keys_parent ON sdm_keys (scope, parent_norm);"
        "CREATE TABLE sdm_values (scope text COLLATE \"C\" NOT NULL, key_norm text COLLATE \"C\" NOT NULL, "
        "name text COLLATE \"C\" NOT NULL, value text NOT NULL, PRIMARY KEY (scope, key_norm, name));"
        "INSERT INTO sdm_keys VALUES ('', 'old', 'Old', ''); INSERT INTO sdm_values VALUES ('', 'old', 'n', 'kept');"))
        << schema.Raw().Error();
    const XComPtr<IWQ_SessionDataStorageEx> storage = NewSqlStorage(schema.Connection());
    ASSERT_TRUE(storage);
    EXPECT_EQ((Pairs{{L"n", L"kept"}}), ReadPairs(storage.Get(), L"old").pairs);
    EXPECT_EQ(std::vector<std::string>{"2"}, schema.Raw().Rows("SELECT version FROM sdm_schema"));
    EXPECT_EQ(std::vector<std::string>{"format|WQSessionDataMng session data"},
              schema.Raw().Rows("SELECT * FROM sdm_meta"));
}

TEST(PostgresSchema, ADatabaseOfSomethingElseIsRefusedAndLeftAsItWas)
{
    PgTestSchema schema;
    ASSERT_TRUE(schema.Raw().Execute("CREATE TABLE customers (id integer, name text); "
                                     "INSERT INTO customers VALUES (1, 'x')"));
    std::wstring message;
    EXPECT_EQ(XSqlError::kForeign, OpenFails(schema.Connection(), &message));
    EXPECT_NE(std::wstring::npos, message.find(L"not a session data database")) << Utf8(message);
    EXPECT_EQ(std::vector<std::string>{"customers"},
              schema.Raw().Rows("SELECT table_name FROM information_schema.tables WHERE table_schema = '" +
                                schema.Name() + "'"));
}

TEST(PostgresSchema, ANewerSchemaIsRefused)
{
    PgTestSchema schema;
    ASSERT_TRUE(schema.Raw().Execute("CREATE TABLE sdm_schema (version integer NOT NULL); "
                                     "INSERT INTO sdm_schema VALUES (99)"));
    std::wstring message;
    EXPECT_EQ(XSqlError::kForeign, OpenFails(schema.Connection(), &message));
    EXPECT_NE(std::wstring::npos, message.find(L"newer")) << Utf8(message);
}

TEST(PostgresSchema, ServersOpeningANewDatabaseAtOnceMakeItsSchemaOnce)
{
    PgTestSchema schema;
    const std::wstring connection = schema.Connection();
    std::vector<std::thread> servers;
    HRESULT results[4] = {E_FAIL, E_FAIL, E_FAIL, E_FAIL};
    for (HRESULT& result : results)
        servers.emplace_back([&connection, &result] {
            ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            result = NewSqlStorage(connection, &result) ? S_OK : result;
            ::CoUninitialize();
        });
    for (std::thread& server : servers)
        server.join();
    for (const HRESULT result : results)
        EXPECT_EQ(S_OK, result);
    EXPECT_EQ(std::vector<std::string>{"1"}, schema.Raw().Rows("SELECT count(*) FROM sdm_meta"));
}

TEST(PostgresConnection, TextsThatCannotWorkAreInvalidArgumentsAndNeverShowThePassword)
{
    const std::wstring secret = kSecret;
    const struct
    {
        std::wstring connection;
        const wchar_t* says;
    } cases[] = {
        {L"odbc:Server=127.0.0.1;Pwd=" + secret, L"names no driver or data source"},
        {L"odbc:Driver={PostgreSQL Unicode;Pwd=" + secret, L"is not closed"},
        {L"odbc:Driver={PostgreSQL Unicode};Server;Pwd=" + secret, L"has no '='"},
        {L"odbc:Driver={PostgreSQL Unicode};=x;Pwd=" + secret, L"has no name"},
        {L"odbc:", L"names no driver or data source"},
        {L"postgres:Pwd=" + secret, L"unknown connection scheme"},
    };
    for (const auto& c : cases)
    {
        std::wstring message;
        EXPECT_EQ(E_INVALIDARG, OpenFails(c.connection, &message)) << Utf8(c.connection);
        EXPECT_NE(std::wstring::npos, message.find(c.says)) << Utf8(message);
        EXPECT_FALSE(ShowsSecret(message)) << Utf8(message);
    }
    EXPECT_FALSE(LogShowsSecret());
}

TEST(PostgresConnection, FailuresToConnectNameTheirCauseAndNeverThePassword)
{
    const std::wstring base = PgTestConnectionText();
    ASSERT_FALSE(base.empty());
    const size_t pwd = base.find(L"Pwd=") + 4;
    const std::wstring realPassword = base.substr(pwd, base.find(L';', pwd) - pwd);
    ASSERT_GE(realPassword.size(), 8u);
    const struct
    {
        std::wstring connection;
        HRESULT hr;
        const wchar_t* says;
    } cases[] = {
        {WithAttribute(base, L"Pwd", kSecret), XSqlError::kLogonFailed, L"password authentication failed"},
        {WithAttribute(WithAttribute(base, L"Driver", L"{No Such Driver}"), L"Pwd", kSecret), XSqlError::kNoDriver,
         L"No Such Driver"},
        {WithAttribute(base, L"Database", L"no_such_database"), XSqlError::kCannotOpen, L"does not exist"},
        {WithAttribute(WithAttribute(base, L"Port", L"1"), L"Pwd", kSecret), XSqlError::kUnreachable,
         L"Connection refused"},
    };
    for (const auto& c : cases)
    {
        std::wstring message;
        EXPECT_EQ(c.hr, OpenFails(L"odbc:" + c.connection, &message)) << Utf8(message);
        EXPECT_NE(std::wstring::npos, message.find(c.says)) << Utf8(message);
        EXPECT_NE(std::wstring::npos, message.find(L"Pwd=***")) << Utf8(message);
        EXPECT_FALSE(ShowsSecret(message)) << Utf8(message);
        EXPECT_EQ(std::wstring::npos, message.find(realPassword)) << Utf8(message);
    }
    EXPECT_FALSE(LogShowsSecret());
}

TEST(PostgresConnection, AServerThatNeverAnswersIsGivenUpAfterTheLoginTimeout)
{
    SilentServer silent;
    const std::wstring connection =
        L"odbc:" + WithAttribute(PgTestConnectionText(), L"Port", std::to_wstring(silent.Port()));
    const auto start = std::chrono::steady_clock::now();
    std::wstring message;
    EXPECT_EQ(XSqlError::kUnreachable, OpenFails(connection, &message)) << Utf8(message);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::seconds(XOdbcConnection::kLoginTimeoutSeconds - 1));
    EXPECT_LT(waited, std::chrono::seconds(XOdbcConnection::kLoginTimeoutSeconds + 10));
}

TEST(PostgresConnection, StatementsHaveATimeLimitUnlessTheConnectionSetsItsOwn)
{
    PgTestSchema schema;
    {
        XOdbcConnection connection(schema.OdbcText());
        XSqlUse show(connection.Statement("SHOW statement_timeout"));
        ASSERT_TRUE(show->Step());
        EXPECT_EQ(std::to_wstring(XOdbcConnection::kStatementTimeoutMs / 1000) + L"s", show->ColumnText(0));
    }
    XOdbcConnection own(PgTestConnectionText() + L"ConnSettings=SET statement_timeout%3D1500;");
    XSqlUse show(own.Statement("SHOW statement_timeout"));
    ASSERT_TRUE(show->Step());
    EXPECT_EQ(L"1500ms", show->ColumnText(0));
}

TEST(PostgresConnection, AWriteWaitingPastTheTimeLimitFailsAsATimeoutAndWritesNothing)
{
    PgTestSchema schema;
    const std::wstring connection =
        L"odbc:" + PgTestConnectionText() + L"ConnSettings={SET search_path TO " +
        std::wstring(schema.Name().begin(), schema.Name().end()) + L";SET statement_timeout TO 700};";
    const XComPtr<IWQ_SessionDataStorageEx> storage = NewSqlStorage(connection);
    ASSERT_TRUE(storage);
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"k", {{L"v", L"old"}}));
    RawOdbc locker(schema.OdbcText());
    ASSERT_TRUE(locker.Execute("BEGIN")) << locker.Error();
    ASSERT_TRUE(locker.Execute("LOCK TABLE sdm_values IN ACCESS EXCLUSIVE MODE")) << locker.Error();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(XSqlError::kTimeout, StorePairs(storage.Get(), L"k", {{L"v", L"new"}}));
    EXPECT_NE(std::wstring::npos, TakeErrorInfo().description.find(L"statement timeout"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    ASSERT_TRUE(locker.Execute("ROLLBACK"));
    EXPECT_EQ((Pairs{{L"v", L"old"}}), ReadPairs(storage.Get(), L"k").pairs);
}

TEST(PostgresConnection, AConnectionTheServerEndedIsMadeAgainAndTheCallSucceeds)
{
    PgTestSchema schema;
    const XComPtr<IWQ_SessionDataStorageEx> storage = NewSqlStorage(schema.Connection());
    ASSERT_TRUE(storage);
    ASSERT_EQ(S_OK, StorePairs(storage.Get(), L"k", {{L"v", L"1"}}));
    ASSERT_EQ(1, schema.EndOtherConnections());
    EXPECT_EQ((Pairs{{L"v", L"1"}}), ReadPairs(storage.Get(), L"k").pairs);
    ASSERT_EQ(1, schema.EndOtherConnections());
    EXPECT_EQ(S_OK, StorePairs(storage.Get(), L"k", {{L"v", L"2"}}));
    ASSERT_EQ(1, schema.EndOtherConnections());
    EXPECT_EQ(S_OK, storage->DeleteKey(XWQComBSTR(L"k")));
    EXPECT_EQ(std::vector<std::string>{"0"}, schema.Raw().Rows("SELECT count(*) FROM sdm_values"));
}

TEST(PostgresLimits, AKeyPastTheIndexLimitIsRefusedAsTooBigAndNothingIsWritten)
{
    PgTestSchema schema;
    const XComPtr<IWQ_SessionDataStorageEx> storage = NewSqlStorage(schema.Connection());
    ASSERT_TRUE(storage);
    // Letters that do not compress: PostgreSQL compresses long index entries first.
    std::wstring key = L"Long/";
    unsigned state = 12345;
    for (int i = 0; i < 4000; ++i)
    {
        state = state * 1103515245u + 12345u;
        key += static_cast<wchar_t>(L'a' + (state >> 16) % 26);
    }
    EXPECT_EQ(XSqlError::kTooBig, StorePairs(storage.Get(), key.c_str(), {{L"v", L"1"}}));
    EXPECT_NE(std::wstring::npos, TakeErrorInfo().description.find(L"PostgreSQL"));
    EXPECT_EQ(std::vector<std::string>{"0"}, schema.Raw().Rows("SELECT count(*) FROM sdm_keys"));
    EXPECT_EQ(S_OK, StorePairs(storage.Get(), L"Long/short", {{L"v", L"1"}}));
}
