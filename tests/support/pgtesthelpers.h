// Helpers of the tests on PostgreSQL: the test cluster's database (the ODBC connection text in
// WQ_TEST_PG, which the test job sets when it starts the cluster), a raw ODBC connection to look
// at and prepare what the storage wrote, and a schema of the running test's own.
#pragma once

#include <memory>
#include <string>
#include <vector>

// The ODBC text of the test cluster's database; fails the test (and returns "") when unset.
std::wstring PgTestConnectionText();

// A raw ODBC connection for looking at and preparing a database (no storage code involved).
class RawOdbc
{
public:
    explicit RawOdbc(const std::wstring& text);
    ~RawOdbc();
    RawOdbc(const RawOdbc&) = delete;
    RawOdbc& operator=(const RawOdbc&) = delete;

    bool Connected() const { return m_connection != nullptr; }
    // Runs sql; false (with the message in Error()) on failure.
    bool Execute(const std::string& sql);
    // The rows of a query, each column as UTF-8 text ("<null>" for NULL), columns joined by "|".
    std::vector<std::string> Rows(const std::string& sql);
    std::string Error() const { return m_error; }

private:
    void* m_environment = nullptr;
    void* m_connection = nullptr;
    std::string m_error;
};

// A schema of the running test in the test database, made empty when the test starts and
// dropped when it ends: connections with Connection() use it for every unqualified name, and
// carry its name as their application name.
class PgTestSchema
{
public:
    PgTestSchema();
    ~PgTestSchema();
    PgTestSchema(const PgTestSchema&) = delete;
    PgTestSchema& operator=(const PgTestSchema&) = delete;

    const std::string& Name() const { return m_name; }
    // The ODBC text (without the "odbc:" scheme) whose connections use the schema.
    std::wstring OdbcText() const;
    std::wstring Connection() const { return L"odbc:" + OdbcText(); }
    RawOdbc& Raw() { return *m_raw; }
    // Ends the server processes of every other connection with this schema's name (what a
    // restart of the server does to them); how many it ended.
    int EndOtherConnections();

private:
    std::string m_name;
    std::unique_ptr<RawOdbc> m_raw;
};
