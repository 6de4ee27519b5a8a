// sdmctl run as a user runs it: every command against the registry, the database (through the
// root server) and, in the shell, the volatile category; every output format parsed back; bad
// input refused before anything is written, with its exit code and message.
#include "sdmctltest.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <windows.h>

#include <cctype>
#include <cstdio>
#include <fstream>
#include <thread>

using nlohmann::json;

namespace
{
bool Has(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

void WriteText(const std::string& path, const std::string& text)
{
    FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_TRUE(file);
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
}
} // namespace

TEST(Sdmctl, EveryTypeIsWrittenAndReadBackAsText)
{
    ToolApp app;
    const struct
    {
        const char* type;
        const char* value;
        const char* shown;
    } cases[] = {
        {"string", "wide \xF0\x9F\x94\x91 window", "wide \xF0\x9F\x94\x91 window"},
        {"i1", "-5", "-5"},
        {"i2", "-300", "-300"},
        {"i4", "1280", "1280"},
        {"i8", "9007199254740993", "9007199254740993"},
        {"ui1", "200", "200"},
        {"ui2", "60000", "60000"},
        {"ui4", "4000000000", "4000000000"},
        {"ui8", "18000000000000000000", "18000000000000000000"},
        {"int", "-7", "-7"},
        {"uint", "7", "7"},
        {"r4", "1.5", "1.5"},
        {"r8", "2.25", "2.25"},
        {"bool", "true", "True"},
        {"date", "2026-11-24 10:30:00", "11/24/2026 10:30:00"},
        {"cy", "12.3456", "12.3456"},
        {"decimal", "123456789.123456789", "123456789.123456789"},
    };
    for (const auto& c : cases)
    {
        const ToolRun set = app.Run({"set", "Types", c.type, c.value, "--type", c.type, "-c", "user"});
        EXPECT_EQ(0, set.exitCode) << c.type << ": " << set.err;
        const ToolRun get = app.Run({"get", "Types", c.type, "--type", c.type, "-c", "user"});
        EXPECT_EQ(0, get.exitCode) << c.type << ": " << get.err;
        EXPECT_EQ(std::string(c.shown) + "\n", get.out) << c.type;
    }
    // JSON: numbers and booleans bare.
    const json number = json::parse(app.Run({"get", "Types", "i4", "--type", "i4", "-c", "user", "--json"}).out);
    EXPECT_EQ(1280, number["value"]);
    EXPECT_EQ("user", number["category"]);
    EXPECT_EQ(true, json::parse(app.Run({"--json", "get", "Types", "bool", "--type", "bool"}).out)["value"]);
}

TEST(Sdmctl, GetAcrossCategoriesSaysWhereTheValueWasFoundAndNothingIsExitOne)
{
    ToolApp app;
    ASSERT_EQ(0, app.Run({"set", "Users/Alice/Window", "Width", "1280", "--type", "i4", "-c", "user"}).exitCode);
    ASSERT_EQ(0, app.Run({"set", "Users/Alice/Window", "Width", "640", "-c", "global"}).exitCode);
    // The manager's order: volatile, user, machine, userdb, global.
    EXPECT_EQ("1280 (found in: user)\n", app.Run({"get", "Users/Alice/Window", "Width", "-c", "all"}).out);
    EXPECT_EQ("640\n", app.Run({"get", "Users/Alice/Window", "Width", "-c", "global"}).out);
    const ToolRun missing = app.Run({"get", "Users/Alice/Window", "Height"});
    EXPECT_EQ(1, missing.exitCode);
    EXPECT_EQ("", missing.out);
    EXPECT_TRUE(json::parse(app.Run({"get", "Users/Alice/Window", "Height", "--json"}).out)["value"].is_null());
}

TEST(Sdmctl, ListMergesTheCategoriesAndShowsWhereEachValueCameFrom)
{
    ToolApp app;
    ASSERT_EQ(0, app.Run({"set", "K", "a", "from user", "-c", "user"}).exitCode);
    ASSERT_EQ(0, app.Run({"set", "K", "a", "hidden", "-c", "userdb"}).exitCode);
    ASSERT_EQ(0, app.Run({"set", "K", "b", "from userdb", "-c", "userdb"}).exitCode);
    const ToolRun text = app.Run({"list", "K"});
    EXPECT_EQ(0, text.exitCode) << text.err;
    EXPECT_EQ("a = from user  (user)\nb = from userdb  (userdb)\n", text.out);
    const json listed = json::parse(app.Run({"list", "K", "-c", "userdb", "--json"}).out);
    ASSERT_EQ(2u, listed["values"].size());
    EXPECT_EQ("hidden", listed["values"][0]["value"]);
    EXPECT_EQ(1, app.Run({"list", "Nothing"}).exitCode);
}

TEST(Sdmctl, KeysAndTreeListSubKeysOfEveryCategory)
{
    ToolApp app;
    for (const char* key : {"Users/Alice/Window", "Users/Bob"})
        ASSERT_EQ(0, app.Run({"set", key, "v", "1", "-c", "user"}).exitCode);
    ASSERT_EQ(0, app.Run({"set", "Users/Carol", "v", "1", "-c", "userdb"}).exitCode);
    EXPECT_EQ("Users/Alice\nUsers/Bob\n", app.Run({"keys", "Users", "-c", "user"}).out);
    EXPECT_EQ("Users/Alice\nUsers/Alice/Window\nUsers/Bob\n", app.Run({"tree", "Users", "-c", "user"}).out);
    const json all = json::parse(app.Run({"tree", "Users", "--json"}).out);
    EXPECT_EQ(4u, all["keys"].size()) << all.dump();
    EXPECT_EQ(1, app.Run({"keys", "Users/Bob", "-c", "user"}).exitCode);
}

TEST(Sdmctl, DumpWritesJsonRegAndCsvThatParseBack)
{
    ToolApp app;
    ASSERT_EQ(0, app.Run({"set", "Doc/A", "path", "C:\\dir \"q\"", "-c", "user"}).exitCode);
    ASSERT_EQ(0, app.Run({"set", "Doc/A/B", "n", "x,y", "-c", "user"}).exitCode);
    const json dump = json::parse(app.Run({"dump", "Doc", "-c", "user"}).out);
    EXPECT_EQ("sdmctl-dump", dump["format"]);
    EXPECT_EQ("user", dump["category"]);
    ASSERT_EQ(3u, dump["keys"].size());
    EXPECT_EQ("C:\\dir \"q\"", dump["keys"][1]["values"]["path"]);
    const std::string reg = app.Run({"dump", "Doc", "-c", "user", "--format", "reg"}).out;
    EXPECT_TRUE(Has(reg, "[Doc\\A]\n\"path\"=\"C:\\\\dir \\\"q\\\"\"\n")) << reg;
    const std::string csv = app.Run({"dump", "Doc", "-c", "user", "--format", "csv"}).out;
    EXPECT_EQ("key,name,value\r\nDoc/A,path,\"C:\\dir \"\"q\"\"\"\r\nDoc/A/B,n,\"x,y\"\r\n", csv);
}

TEST(Sdmctl, ADumpOf10000ValuesLoadsIntoTheDatabaseAndDumpsBackEqual)
{
    ToolApp app;
    json input = {{"format", "sdmctl-dump"}, {"version", 1}, {"category", "userdb"}, {"root", "Big"}};
    json keys = json::array();
    for (int k = 0; k < 500; ++k)
    {
        json values = json::object();
        for (int v = 0; v < 20; ++v)
            values["name" + std::to_string(v)] = "value " + std::to_string(k) + "." + std::to_string(v) + " \xC3\xA9";
        keys.push_back({{"key", "Big/K" + std::to_string(1000 + k)}, {"values", values}});
    }
    input["keys"] = keys;
    const std::string file = app.File(".json");
    WriteText(file, input.dump());
    const ToolRun load = app.Run({"load", file});
    EXPECT_EQ(0, load.exitCode) << load.err;
    EXPECT_EQ("loaded 10000 values in 500 keys into userdb\n", load.out);
    const ToolRun dumped = app.Run({"dump", "Big", "-c", "userdb"});
    ASSERT_EQ(0, dumped.exitCode) << dumped.err;
    json output = json::parse(dumped.out);
    // The dump starts at the root key, which has no values of its own.
    ASSERT_EQ(501u, output["keys"].size());
    EXPECT_EQ("Big", output["keys"][0]["key"]);
    output["keys"].erase(0);
    // Keys compare without regard to case, and the layers hand them to a database lower-cased.
    const auto lower = [](std::string text) {
        for (char& c : text)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return text;
    };
    for (size_t i = 0; i < keys.size(); ++i)
    {
        EXPECT_EQ(keys[i]["values"], output["keys"][i]["values"]) << i;
        EXPECT_EQ(lower(keys[i]["key"]), output["keys"][i]["key"]) << i;
    }
}

TEST(Sdmctl, LoadWritesEachKeyWhollyOrNotAtAllAndSaysWhichFailed)
{
    ToolApp app;
    const std::string file = app.File(".json");
    // The registry cannot hold a NUL inside a value: that key's list is refused whole.
    WriteText(file, R"({"format": "sdmctl-dump", "version": 1, "category": "user", "keys": [
        {"key": "Good", "values": {"a": "1"}},
        {"key": "Bad", "values": {"a": "1", "b": "x\u0000y"}},
        {"key": "AlsoGood", "values": {"c": "3"}}]})");
    const ToolRun load = app.Run({"load", file});
    EXPECT_EQ(3, load.exitCode);
    EXPECT_EQ("loaded 2 values in 2 keys into user\n", load.out);
    EXPECT_TRUE(Has(load.err, "key Bad")) << load.err;
    EXPECT_EQ(0, app.Run({"get", "Good", "a", "-c", "user"}).exitCode);
    EXPECT_EQ(0, app.Run({"get", "AlsoGood", "c", "-c", "user"}).exitCode);
    EXPECT_EQ(1, app.Run({"get", "Bad", "a", "-c", "user"}).exitCode);
}

TEST(Sdmctl, CopyDeleteAndFlush)
{
    ToolApp app;
    ASSERT_EQ(0, app.Run({"set", "Users/Alice", "n", "1", "-c", "user"}).exitCode);
    ASSERT_EQ(0, app.Run({"set", "Users/Alice/Deep", "m", "2", "-c", "user"}).exitCode);
    const ToolRun copy = app.Run({"copy", "Users/Alice", "-c", "user", "--to", "userdb"});
    EXPECT_EQ(0, copy.exitCode) << copy.err;
    EXPECT_EQ("2\n", app.Run({"get", "Users/Alice/Deep", "m", "-c", "userdb"}).out);
    EXPECT_EQ("1\n", app.Run({"get", "Users/Alice", "n", "-c", "userdb"}).out);
    EXPECT_EQ(0, app.Run({"delete", "Users/Alice", "-c", "userdb"}).exitCode);
    EXPECT_EQ(1, app.Run({"get", "Users/Alice/Deep", "m", "-c", "userdb"}).exitCode);
    // The registry's storage cannot delete keys through the component: said, not pretended.
    const ToolRun registry = app.Run({"delete", "Users/Alice", "-c", "user"});
    EXPECT_EQ(3, registry.exitCode);
    EXPECT_TRUE(Has(registry.err, "deletes keys only in database categories")) << registry.err;
    EXPECT_EQ("1\n", app.Run({"get", "Users/Alice", "n", "-c", "user"}).out);
    const ToolRun flush = app.Run({"flush"});
    EXPECT_EQ(0, flush.exitCode) << flush.err;
    EXPECT_EQ("flushed: volatile user machine userdb global\n", flush.out);
}

TEST(Sdmctl, StatusShowsEveryBindingAndItsStorage)
{
    ToolApp app;
    const ToolRun status = app.Run({"status", "--json", "--bind", "user3=registry:HKCU\\Software\\" + app.Name() +
                                                                   "\\Three;cache=no"});
    ASSERT_EQ(0, status.exitCode) << status.err;
    const json parsed = json::parse(status.out);
    ASSERT_EQ(8u, parsed["categories"].size());
    EXPECT_EQ("registry", parsed["categories"][0]["storage"]);
    EXPECT_EQ("database", parsed["categories"][1]["storage"]);
    EXPECT_EQ("volatile", parsed["categories"][4]["storage"]);
    EXPECT_FALSE(parsed["categories"][5]["bound"]);
    EXPECT_EQ("registry:HKCU\\Software\\" + app.Name() + "\\Three;cache=no", parsed["categories"][7]["target"]);
    EXPECT_TRUE(Has(app.Run({"status"}).out, "user      registry     registry:HKCU\\Software\\" + app.Name()));
}

TEST(Sdmctl, AProfileFileAndBindOptionsBindTheUserDefinedCategories)
{
    ToolApp app;
    const std::string profile = app.File(".profile.json");
    WriteText(profile, R"({"format": "sdmctl-profile", "version": 1, "bindings": {"user1": "registry:HKCU\\Software\\)" +
                           app.Name() + R"(\\One"}})");
    ASSERT_EQ(0, app.Run({"--profile", profile, "set", "K", "n", "one", "-c", "user1"}).exitCode);
    EXPECT_EQ("one\n", app.Run({"--profile", profile, "get", "K", "n", "-c", "1000"}).out);
    // user2 by --bind, uncached.
    const std::string bind = "user2=registry:HKCU\\Software\\" + app.Name() + "\\Two;cache=no";
    ASSERT_EQ(0, app.Run({"--bind", bind, "set", "K", "n", "two", "-c", "user2"}).exitCode);
    EXPECT_EQ("two\n", app.Run({"--bind", bind, "get", "K", "n", "-c", "user2"}).out);
    // Unbound: a usage error.
    const ToolRun unbound = app.Run({"get", "K", "n", "-c", "user3"});
    EXPECT_EQ(2, unbound.exitCode);
    EXPECT_TRUE(Has(unbound.err, "user3 is not bound")) << unbound.err;
}

TEST(Sdmctl, EncryptedValuesAreReadInClearOnlyThroughDecrypt)
{
    ToolApp app;
    ASSERT_EQ(0, app.Run({"set", "Secrets", "token", "s3cret \xE2\x82\xAC", "--encrypt", "-c", "user"}).exitCode);
    const std::string stored = app.Run({"get", "Secrets", "token", "-c", "user"}).out;
    EXPECT_FALSE(Has(stored, "s3cret")) << stored;
    EXPECT_EQ("s3cret \xE2\x82\xAC\n", app.Run({"get", "Secrets", "token", "-c", "user", "--decrypt"}).out);
}

TEST(Sdmctl, BadInputIsRefusedWithExitTwoAndNothingIsWritten)
{
    ToolApp app;
    const std::vector<std::string> before = OtherSoftwareKeys();
    const std::string malformed = app.File(".bad.json");
    WriteText(malformed, "{\"format\": \"sdmctl-dump\", ");
    const std::string newer = app.File(".newer.json");
    WriteText(newer, R"({"format": "sdmctl-dump", "version": 7, "keys": [{"key": "K", "values": {"n": "v"}}]})");
    const std::string other = app.File(".other.json");
    WriteText(other, R"({"format": "something", "keys": []})");
    const struct
    {
        std::vector<std::string> arguments;
        const char* says;
    } cases[] = {
        {{"set", "K", "n", "v", "-c", "nosuch"}, "unknown category 'nosuch'"},
        {{"set", "K", "n", "v", "-c", "all"}, "one category, not all"},
        {{"set", "K", "n", "wide", "--type", "i4", "-c", "user"}, "'wide' is not a value of type i4"},
        {{"set", "K", "n", "v", "--type", "float", "-c", "user"}, "unknown type 'float'"},
        {{"load", app.File(".missing.json"), "-c", "user"}, "cannot read"},
        {{"load", malformed, "-c", "user"}, "is not valid JSON"},
        {{"load", newer, "-c", "user"}, "format version 7, newer than this program's 1"},
        {{"load", other, "-c", "user"}, "is not an sdmctl dump"},
        {{"--profile", app.File(".noprofile.json"), "set", "K", "n", "v"}, "cannot read"},
        {{"--bind", "user=ftp:somewhere", "set", "K", "n", "v"}, "unknown storage 'ftp'"},
        {{"--bind", "user", "set", "K", "n", "v"}, "CATEGORY=STORAGE"},
        {{"frobnicate"}, "unknown command 'frobnicate'"},
        {{"set", "K", "n"}, "value is required"},
    };
    for (const auto& c : cases)
    {
        const ToolRun run = app.Run(c.arguments);
        EXPECT_EQ(2, run.exitCode) << c.says << ": " << run.err;
        EXPECT_TRUE(Has(run.err, c.says)) << run.err;
        EXPECT_TRUE(Has(run.err, "usage")) << run.err;
    }
    EXPECT_EQ(1, app.Run({"get", "K", "n"}).exitCode);
    EXPECT_EQ(before, OtherSoftwareKeys());
}

TEST(Sdmctl, AFailureOfTheComponentIsExitThreeWithTheHresultAndItsText)
{
    ToolApp app;
    // A value with a NUL cannot go into the registry: the storage refuses it.
    const ToolRun run = app.Run({"copy", "K", "-c", "user", "--to", "user"});
    EXPECT_EQ(1, run.exitCode);
    const ToolRun root = app.Run({"root", "--set", "nosuch:thing"});
    EXPECT_EQ(3, root.exitCode);
    EXPECT_TRUE(Has(root.err, "error 0x80070057")) << root.err;
    EXPECT_TRUE(Has(root.err, "the default connection cannot be set")) << root.err;
    const ToolRun shown = app.Run({"root", "--json"});
    EXPECT_EQ(0, shown.exitCode) << shown.err;
    EXPECT_TRUE(json::parse(shown.out)["default"].is_string());
}

TEST(Sdmctl, LogShowsTheLastLinesOfTheLogBook)
{
    ToolApp app;
    app.Run({"root", "--set", "nosuch:thing"});  // the server logs the refusal; this process too
    wchar_t path[MAX_PATH] = {};
    ASSERT_TRUE(::GetEnvironmentVariableW(L"WQSDM_LOGBOOK", path, MAX_PATH));
    FILE* file = _wfopen(path, L"ab");
    ASSERT_TRUE(file);
    std::fputs("2026-11-24T07:00:00.000Z\tpid=1\ttid=1\tsev=8\tWQSessionDataMng\tTest::Line\tx:1\thr=0x80004005\tthe last line\n", file);
    std::fclose(file);
    const ToolRun log = app.Run({"log", "-n", "1"});
    EXPECT_EQ(0, log.exitCode) << log.err;
    EXPECT_TRUE(Has(log.out, "the last line")) << log.out;
    EXPECT_EQ(1, std::count(log.out.begin(), log.out.end(), '\n')) << log.out;
}

TEST(Sdmctl, TheShellKeepsTheVolatileCategoryForItsWholeSession)
{
    ToolApp app;
    const ToolRun shell = app.Run({"shell"}, "set Session id 42 -c volatile\n"
                                             "get Session id -c volatile\n"
                                             "get Session id --json\n"
                                             "history\n"
                                             "get Session nothing -c volatile\n"
                                             "set \"Quoted Key\" 'a name' \"two words\" -c volatile\n"
                                             "get \"Quoted Key\" 'a name' -c volatile\n"
                                             "exit\n");
    EXPECT_EQ(0, shell.exitCode) << shell.err;
    EXPECT_TRUE(Has(shell.out, "sdmctl> 42\n")) << shell.out;
    EXPECT_TRUE(Has(shell.out, "\"value\":\"42\",\"category\":\"volatile\"")) << shell.out;
    EXPECT_TRUE(Has(shell.out, "1  set Session id 42 -c volatile\n")) << shell.out;
    EXPECT_TRUE(Has(shell.out, "(nothing there)")) << shell.out;
    EXPECT_TRUE(Has(shell.out, "two words\n")) << shell.out;
    // A new process has a new volatile category.
    EXPECT_EQ(1, app.Run({"get", "Session", "id", "-c", "volatile"}).exitCode);
}

TEST(Sdmctl, TheEnvironmentCategoryLivesInTheProcessOfTheShell)
{
    ToolApp app;
    const ToolRun shell = app.Run({"--bind", "user1=env", "shell"}, "set Session/Env token abc -c user1\n"
                                                                     "get Session/Env token -c user1\n"
                                                                     "list Session/Env -c user1 --json\n"
                                                                     "status\n"
                                                                     "exit\n");
    EXPECT_EQ(0, shell.exitCode) << shell.err;
    EXPECT_TRUE(Has(shell.out, "sdmctl> abc\n")) << shell.out;
    EXPECT_TRUE(Has(shell.out, "{\"name\":\"token\",\"value\":\"abc\",\"category\":\"user1\"}")) << shell.out;
    EXPECT_TRUE(Has(shell.out, "user1     environment  env")) << shell.out;
}

TEST(Sdmctl, LogFollowPrintsWhatIsAddedToTheLogBook)
{
    ToolApp app;
    wchar_t path[MAX_PATH] = {};
    ASSERT_TRUE(::GetEnvironmentVariableW(L"WQSDM_LOGBOOK", path, MAX_PATH));
    const auto append = [&path](const char* line) {
        FILE* file = _wfopen(path, L"ab");
        ASSERT_TRUE(file);
        std::fputs(line, file);
        std::fclose(file);
    };
    append("2026-11-24T07:00:00.000Z\tpid=1\ttid=1\tsev=8\tWQSessionDataMng\tTest::Line\tx:1\thr=0x80004005\tbefore\n");
    // The follower runs until it is ended; a second line appended meanwhile must show.
    std::thread writer([&append] {
        ::Sleep(1500);
        append("2026-11-24T07:00:01.000Z\tpid=1\ttid=1\tsev=8\tWQSessionDataMng\tTest::Line\tx:1\thr=0x80004005\tafter\n");
    });
    const ToolRun follow = RunToolFor({"log", "-n", "1", "--follow"}, 4000);
    writer.join();
    EXPECT_TRUE(Has(follow.out, "\tbefore\n")) << follow.out;
    EXPECT_TRUE(Has(follow.out, "\tafter\n")) << follow.out;
}
