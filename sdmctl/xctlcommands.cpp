#include "xctlcommands.h"

#include "XSimpleCrypt.h"
#include "XWQComBSTR.h"
#include "xctldump.h"
#include "xctlfile.h"
#include "xctlvalue.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <windows.h>

#include <set>

namespace
{
using Json = nlohmann::ordered_json;

XWQComBSTR Bstr(const std::string& text)
{
    const std::wstring wide = XCtlWide(text);
    return XWQComBSTR(wide.c_str());
}

// A value for JSON: numbers and booleans bare, everything else as text.
Json JsonOf(const VARIANT& value)
{
    if (value.vt == VT_BOOL)
        return value.boolVal != VARIANT_FALSE;
    const std::string text = XCtlTextOf(value);
    if (XCtlIsNumeric(value.vt))
    {
        const Json number = Json::parse(text, nullptr, false);
        if (!number.is_discarded())
            return number;
    }
    return text;
}

const char* StorageKindName(SDM_STORAGE_TYPE type)
{
    static const char* const names[] = {"not bound", "unknown", "registry", "database", "environment", "volatile"};
    const unsigned kind = static_cast<unsigned>(type) & 0xFF;
    return kind < 6 ? names[kind] : "unknown";
}

std::string Hex(HRESULT hr)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(hr));
    return text;
}

std::string LogBookPath()
{
    wchar_t path[MAX_PATH] = {};
    if (::GetEnvironmentVariableW(L"WQSDM_LOGBOOK", path, MAX_PATH))
        return XCtlUtf8(path);
    ::GetEnvironmentVariableW(L"LOCALAPPDATA", path, MAX_PATH);
    return XCtlUtf8(path) + "\\WQSessionDataMng\\WQSessionDataMng.log";
}

// The categories a command works on: the one named, or for "all" every bound one in the order
// the manager reads them.
std::vector<XCtlCategory> Across(XCtlSession& session, const XCtlCategory& category)
{
    if (category.number != 0)
        return {category};
    std::vector<XCtlCategory> bound;
    for (const XCtlCategory& each : XCtlMergeOrder())
        if (session.IsBound(each))
            bound.push_back(each);
    return bound;
}

XCtlCategory OneCategory(const std::string& text, const char* command)
{
    const XCtlCategory category = XCtlParseCategory(text);
    if (category.number == 0)
        throw XCtlUsageError(std::string(command) + " works on one category, not all");
    return category;
}

class Progress
{
public:
    explicit Progress(size_t total) : m_total(total), m_shown(XCtlIsConsole(false) && total > 0) {}
    void Step(size_t done)
    {
        if (!m_shown || (done != m_total && done % 100 != 0))
            return;
        const int width = 30;
        const int filled = static_cast<int>(width * done / m_total);
        XCtlWrite("\rloading [" + std::string(filled, '#') + std::string(width - filled, '.') + "] " +
                      std::to_string(done) + "/" + std::to_string(m_total),
                  false);
        if (done == m_total)
            XCtlWrite("\n", false);
    }

private:
    size_t m_total;
    bool m_shown;
};
} // namespace

XCtlCommands::XCtlCommands(CLI::App& app, SessionOf session, const bool& json)
    : m_session(std::move(session)), m_json(json)
{
    Options& o = m_options;
    const auto category = [this, &o](CLI::App* command, const char* fallback) {
        m_defaultCategory[command->get_name()] = fallback;
        command->add_option("-c,--category", o.category,
                            std::string("the category (name or number; default ") + fallback + ")");
    };
    CLI::App* get = app.add_subcommand("get", "read a value");
    get->add_option("key", o.key)->required();
    get->add_option("name", o.name)->required();
    get->add_option("--type", o.type, "the type to read the value as")->capture_default_str();
    get->add_flag("--decrypt", o.decrypt, "decrypt a value written with set --encrypt");
    category(get, "all");
    m_handlers["get"] = [this] { return Get(); };

    CLI::App* set = app.add_subcommand("set", "write a value");
    set->add_option("key", o.key)->required();
    set->add_option("name", o.name)->required();
    set->add_option("value", o.value)->required();
    set->add_option("--type", o.type, "the type the value is written as")->capture_default_str();
    set->add_flag("--encrypt", o.encrypt, "encrypt the value for the user (get --decrypt reads it)");
    category(set, "user");
    m_handlers["set"] = [this] { return Set(); };

    CLI::App* list = app.add_subcommand("list", "the values of a key (-c all: merged, with where each came from)");
    list->add_option("key", o.key)->required();
    category(list, "all");
    m_handlers["list"] = [this] { return List(); };

    for (const char* name : {"keys", "tree"})
    {
        CLI::App* keys = app.add_subcommand(name, std::string(name) == "keys" ? "the sub-keys of a key"
                                                                            : "every key below a key");
        keys->add_option("key", o.key, "the key (the root when left out)");
        category(keys, "all");
        const bool recursive = std::string(name) == "tree";
        m_handlers[name] = [this, recursive] { return Keys(recursive); };
    }

    CLI::App* dump = app.add_subcommand("dump", "a key and its subtree as JSON, .reg-style text or CSV");
    dump->add_option("key", o.key, "the key (the root when left out)");
    dump->add_option("--format", o.format, "json, reg or csv")->check(CLI::IsMember({"json", "reg", "csv"}))
        ->capture_default_str();
    category(dump, "user");
    m_handlers["dump"] = [this] { return Dump(); };

    CLI::App* load = app.add_subcommand("load", "write a JSON dump back (each key's values all at once)");
    load->add_option("file", o.file)->required();
    load->add_option("-c,--category", o.category, "the category (default: the dump's own)");
    m_handlers["load"] = [this] { return Load(); };

    CLI::App* copy = app.add_subcommand("copy", "copy a key with its subtree to another category");
    copy->add_option("key", o.key)->required();
    copy->add_option("to-key", o.toKey, "the key in the other category (default: the same)");
    copy->add_option("--to", o.to, "the category to copy to")->required();
    category(copy, "user");
    m_handlers["copy"] = [this] { return Copy(); };

    CLI::App* remove = app.add_subcommand("delete", "delete a key with its subtree");
    remove->add_option("key", o.key)->required();
    remove->add_option("-c,--category", o.category, "the category")->required();
    m_handlers["delete"] = [this] { return Delete(); };

    CLI::App* flush = app.add_subcommand("flush", "flush caches and asynchronous writes");
    category(flush, "all");
    m_handlers["flush"] = [this] { return Flush(); };

    app.add_subcommand("status", "the bindings, their storages and the last asynchronous error");
    m_handlers["status"] = [this] { return Status(); };

    CLI::App* log = app.add_subcommand("log", "the log book's last lines");
    log->add_option("-n,--lines", o.lines, "how many lines")->capture_default_str();
    log->add_flag("-f,--follow", o.follow, "keep printing what is added");
    m_handlers["log"] = [this] { return Log(); };

    CLI::App* root = app.add_subcommand("root", "show or set the storage root's default connection");
    m_rootSet = root->add_option("--set", o.text, "the new default connection text (\"\" for the SQLite file)");
    m_handlers["root"] = [this] { return Root(); };
}

int XCtlCommands::Execute(CLI::App& app)
{
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    if (chosen.empty())
        return kExitUsage;
    const auto handler = m_handlers.find(chosen.front()->get_name());
    if (handler == m_handlers.end())
        return kExitUsage;
    if (m_options.category.empty())
        m_options.category = m_defaultCategory[chosen.front()->get_name()];
    try
    {
        return handler->second();
    }
    catch (const XCtlUsageError& e)
    {
        XCtlWrite(std::string("sdmctl: ") + e.what() + "\n", false);
        XCtlWrite("usage: " + chosen.front()->get_name() + ": sdmctl " + chosen.front()->get_name() + " --help\n",
                  false);
        return kExitUsage;
    }
    catch (const XCtlFailure& e)
    {
        XCtlWrite(std::string("sdmctl: ") + e.what() + "\n", false);
        return kExitFailure;
    }
}

void XCtlCommands::Print(const std::string& text) const
{
    XCtlWrite(text + "\n");
}

int XCtlCommands::Get()
{
    const XCtlCategory category = XCtlParseCategory(m_options.category);
    const VARTYPE type = XCtlParseType(m_options.type);
    XCtlSession& session = m_session();
    session.Ensure(category);
    const XWQComBSTR key = Bstr(m_options.key), name = Bstr(m_options.name);
    for (const XCtlCategory& each : Across(session, category))
    {
        XVariant value;
        IWQ_SessionDataMng* manager = session.Manager();
        const HRESULT hr = m_options.decrypt ? manager->GetDataEncrypt(key, name, type, &value.Get(), each.type)
                                             : manager->GetData(key, name, type, &value.Get(), each.type);
        if (XCtlCheck(hr, "cannot read " + m_options.key + " " + m_options.name) != S_OK)
            continue;
        if (m_json)
            Print(Json{{"key", m_options.key}, {"name", m_options.name}, {"type", XCtlTypeName(type)},
                       {"value", JsonOf(value.Get())}, {"category", each.name}}
                      .dump());
        else
            Print(XCtlTextOf(value.Get()) + (category.number == 0 ? std::string(" (found in: ") + each.name + ")" : ""));
        return kExitOk;
    }
    if (m_json)
        Print(Json{{"key", m_options.key}, {"name", m_options.name}, {"value", nullptr}}.dump());
    return kExitNothing;
}

int XCtlCommands::Set()
{
    const XCtlCategory category = OneCategory(m_options.category, "set");
    const VARTYPE type = XCtlParseType(m_options.type);
    XVariant value;
    if (m_options.encrypt)
    {
        if (type != VT_BSTR)
            throw XCtlUsageError("--encrypt writes text: leave out --type");
        long error = 0;
        const std::wstring encrypted = EncryptOneStringAndEncode2String(symDPAPI, false, XCtlWide(m_options.value), error);
        if (error != 0)
            throw XCtlFailure(HRESULT_FROM_WIN32(static_cast<DWORD>(error)), "the value cannot be encrypted");
        value.Get().vt = VT_BSTR;
        value.Get().bstrVal = ::SysAllocStringLen(encrypted.data(), static_cast<UINT>(encrypted.size()));
    }
    else
        XCtlValueOf(m_options.value, type, value);
    XCtlSession& session = m_session();
    session.Ensure(category);
    const HRESULT hr = XCtlCheck(
        session.Manager()->WriteData(Bstr(m_options.key), Bstr(m_options.name), value.Get(), category.type),
        "cannot write " + m_options.key + " " + m_options.name);
    session.FlushAsync();
    return hr == S_OK ? kExitOk : kExitNothing;
}

int XCtlCommands::List()
{
    const XCtlCategory category = XCtlParseCategory(m_options.category);
    XCtlSession& session = m_session();
    session.Ensure(category);
    const std::wstring key = XCtlWide(m_options.key);
    Json values = Json::array();
    std::string text;
    std::set<std::wstring> seen;
    for (const XCtlCategory& each : Across(session, category))
        for (const auto& [name, value] : XCtlReadValues(session.Manager(), each.type, key))
        {
            std::wstring lowered = name;
            ::CharLowerBuffW(lowered.data(), static_cast<DWORD>(lowered.size()));
            if (!seen.insert(lowered).second)
                continue;  // a category read earlier has it: that one wins
            values.push_back({{"name", XCtlUtf8(name)}, {"value", XCtlUtf8(value)}, {"category", each.name}});
            text += XCtlUtf8(name) + " = " + XCtlUtf8(value) +
                    (category.number == 0 ? std::string("  (") + each.name + ")" : "") + "\n";
        }
    if (m_json)
        Print(Json{{"key", m_options.key}, {"values", values}}.dump());
    else if (!text.empty())
        XCtlWrite(text);
    return values.empty() ? kExitNothing : kExitOk;
}

int XCtlCommands::Keys(bool recursive)
{
    const XCtlCategory category = XCtlParseCategory(m_options.category);
    XCtlSession& session = m_session();
    session.Ensure(category);
    // The manager lists one category's keys; for all, the lists are merged here (each key once,
    // in the order the categories are read).
    std::vector<std::wstring> keys;
    std::set<std::wstring> seen;
    for (const XCtlCategory& each : Across(session, category))
        for (const std::wstring& key : XCtlReadSubKeys(session.Manager(), each.type, XCtlWide(m_options.key), recursive))
        {
            std::wstring lowered = key;
            ::CharLowerBuffW(lowered.data(), static_cast<DWORD>(lowered.size()));
            if (seen.insert(lowered).second)
                keys.push_back(key);
        }
    if (m_json)
    {
        Json list = Json::array();
        for (const std::wstring& key : keys)
            list.push_back(XCtlUtf8(key));
        Print(Json{{"key", m_options.key}, {"keys", list}}.dump());
    }
    else
        for (const std::wstring& key : keys)
            Print(XCtlUtf8(key));
    return keys.empty() ? kExitNothing : kExitOk;
}

int XCtlCommands::Dump()
{
    const XCtlCategory category = OneCategory(m_options.category, "dump");
    XCtlSession& session = m_session();
    session.Ensure(category);
    const std::wstring key = XCtlWide(m_options.key);
    const std::vector<XCtlKeyValues> tree = XCtlReadTree(session.Manager(), category.type, key);
    if (m_options.format == "reg")
        XCtlWrite(XCtlDumpReg(tree, category.name));
    else if (m_options.format == "csv")
        XCtlWrite(XCtlDumpCsv(tree));
    else
        XCtlWrite(XCtlDumpJson(tree, category.name, key));
    return tree.empty() ? kExitNothing : kExitOk;
}

int XCtlCommands::Load()
{
    std::string dumped;
    const std::vector<XCtlKeyValues> tree = XCtlParseDump(XCtlReadFile(m_options.file), m_options.file, &dumped);
    const std::string named = m_options.category.empty() ? dumped : m_options.category;
    if (named.empty())
        throw XCtlUsageError("the dump names no category: give one with -c");
    const XCtlCategory category = OneCategory(named, "load");
    XCtlSession& session = m_session();
    session.Ensure(category);
    size_t total = 0;
    for (const XCtlKeyValues& entry : tree)
        total += entry.values.empty() ? 0 : 1;
    Progress progress(total);
    size_t keys = 0, values = 0, done = 0;
    std::vector<std::string> failed;
    for (const XCtlKeyValues& entry : tree)
    {
        if (entry.values.empty())
            continue;
        std::vector<XWQComBSTR> strings;
        strings.reserve(entry.values.size() * 2);
        std::vector<tagSESSIONDATAVALUE> records;
        for (const auto& [name, value] : entry.values)
        {
            strings.emplace_back(name.c_str(), static_cast<unsigned>(name.size()));
            strings.emplace_back(value.c_str(), static_cast<unsigned>(value.size()));
            records.push_back({strings[strings.size() - 2], strings.back()});
        }
        // One call per key: its values are written all together or not at all.
        const HRESULT hr = session.Manager()->WriteStringList(XWQComBSTR(entry.key.c_str()),
                                                             static_cast<ULONG>(records.size()), records.data(),
                                                             category.type);
        if (FAILED(hr))
            failed.push_back(XCtlFailure::Describe(hr, "key " + XCtlUtf8(entry.key)));
        else
        {
            ++keys;
            values += records.size();
        }
        progress.Step(++done);
    }
    session.FlushAsync();
    Print("loaded " + std::to_string(values) + " values in " + std::to_string(keys) + " keys into " + category.name);
    for (const std::string& failure : failed)
        XCtlWrite("sdmctl: not loaded: " + failure + "\n", false);
    return failed.empty() ? kExitOk : kExitFailure;
}

int XCtlCommands::Copy()
{
    const XCtlCategory from = OneCategory(m_options.category, "copy");
    const XCtlCategory to = OneCategory(m_options.to, "copy");
    XCtlSession& session = m_session();
    session.Ensure(from);
    session.Ensure(to);
    const std::string toKey = m_options.toKey.empty() ? m_options.key : m_options.toKey;
    const HRESULT hr = XCtlCheck(
        session.Manager()->TransferDataFromTo(from.type, to.type, Bstr(m_options.key), Bstr(toKey)),
        "cannot copy " + m_options.key + " from " + from.name + " to " + to.name);
    session.FlushAsync();
    // The manager copies the sub-keys under their own paths and answers for the key itself.
    if (hr != S_OK)
        XCtlWrite("sdmctl: " + m_options.key + " itself has no values in " + from.name +
                      " (its sub-keys, if any, were copied under their own paths)\n",
                  false);
    return hr == S_OK ? kExitOk : kExitNothing;
}

int XCtlCommands::Delete()
{
    const XCtlCategory category = OneCategory(m_options.category, "delete");
    XCtlSession& session = m_session();
    session.Ensure(category);
    const HRESULT hr = XCtlCheck(session.Manager()->DeleteKey(Bstr(m_options.key), category.type),
                                 "cannot delete " + m_options.key);
    session.FlushAsync();
    if (hr == S_OK)
        return kExitOk;
    // The manager deletes keys through the extended layers, which only database storages have:
    // for the others its S_FALSE means it cannot, not that nothing was there.
    SDM_STORAGE_TYPE kind{};
    session.Manager()->GetStorageType(category.type, &kind);
    if (std::string(StorageKindName(kind)) != "database")
        throw XCtlFailure(E_NOTIMPL, std::string("cannot delete ") + m_options.key + ": the category " + category.name +
                                         " keeps its data in the " + StorageKindName(kind) +
                                         ", and the component deletes keys only in database categories");
    return kExitNothing;
}

int XCtlCommands::Flush()
{
    const XCtlCategory category = XCtlParseCategory(m_options.category);
    XCtlSession& session = m_session();
    session.Ensure(category);
    std::string flushed;
    for (const XCtlCategory& each : Across(session, category))
    {
        XCtlCheck(session.Manager()->FlushCache(each.type), std::string("cannot flush the cache of ") + each.name);
        XCtlCheck(session.Manager()->FlushAsyncStorage(each.type),
                  std::string("the asynchronous writes of ") + each.name + " failed");
        HRESULT async = S_OK;
        session.Manager()->GetLastErrorAsyncExecution(each.type, &async);
        XCtlCheck(async, std::string("the asynchronous writes of ") + each.name + " failed");
        flushed += std::string(flushed.empty() ? "" : " ") + each.name;
    }
    Print(m_json ? Json{{"flushed", flushed}}.dump() : "flushed: " + flushed);
    return kExitOk;
}

int XCtlCommands::Status()
{
    XCtlSession& session = m_session();
    Json rows = Json::array();
    std::string text;
    int result = kExitOk;
    for (const XCtlCategory& category : XCtlBindableCategories())
    {
        const auto binding = session.Profile().bindings.find(category.number);
        Json row{{"category", category.name}, {"number", category.number}};
        char line[512];
        if (binding == session.Profile().bindings.end())
        {
            row["bound"] = false;
            std::snprintf(line, sizeof line, "%-9s not bound\n", category.name);
            text += line;
            rows.push_back(row);
            continue;
        }
        const std::string where = XCtlFormatStorageTarget(binding->second.second);
        row["target"] = where;
        try
        {
            session.Ensure(category);
            SDM_STORAGE_TYPE kind{};
            session.Manager()->GetStorageType(category.type, &kind);
            HRESULT async = S_OK;
            session.Manager()->GetLastErrorAsyncExecution(category.type, &async);
            row["bound"] = true;
            row["storage"] = StorageKindName(kind);
            row["asyncError"] = FAILED(async) ? Json(Hex(async)) : Json(nullptr);
            std::snprintf(line, sizeof line, "%-9s %-12s %s%s\n", category.name, StorageKindName(kind), where.c_str(),
                          FAILED(async) ? ("  last asynchronous error " + Hex(async)).c_str() : "");
        }
        catch (const std::exception& e)
        {
            row["bound"] = false;
            row["error"] = e.what();
            std::snprintf(line, sizeof line, "%-9s %-12s %s  cannot be bound: %s\n", category.name, "-", where.c_str(),
                          e.what());
            result = kExitFailure;
        }
        text += line;
        rows.push_back(row);
    }
    if (m_json)
        Print(Json{{"app", session.Profile().app}, {"categories", rows}}.dump());
    else
        XCtlWrite("application " + session.Profile().app + "\n" + text);
    return result;
}

int XCtlCommands::Log()
{
    const std::string path = LogBookPath();
    std::string bytes;
    try
    {
        bytes = XCtlReadFile(path);
    }
    catch (const XCtlUsageError&)
    {
        if (!m_options.follow)
        {
            XCtlWrite("sdmctl: the log book " + path + " is empty or missing\n", false);
            return kExitNothing;
        }
    }
    // The start of the last n lines (the text after the n-th line end from the back, the final
    // line end not counted).
    size_t start = 0;
    int lines = 0;
    for (size_t at = bytes.size() > 0 && bytes.back() == '\n' ? bytes.size() - 1 : bytes.size(); at-- > 0;)
        if (bytes[at] == '\n' && ++lines == m_options.lines)
        {
            start = at + 1;
            break;
        }
    XCtlWrite(bytes.substr(start));
    size_t shown = bytes.size();
    while (m_options.follow)
    {
        ::Sleep(500);
        std::string now;
        try
        {
            now = XCtlReadFile(path);
        }
        catch (const XCtlUsageError&)
        {
            continue;
        }
        if (now.size() < shown)
            shown = 0;  // the book was rotated: a new file
        XCtlWrite(now.substr(shown));
        shown = now.size();
    }
    return bytes.empty() ? kExitNothing : kExitOk;
}

int XCtlCommands::Root()
{
    XCtlSession& session = m_session();
    const XComPtr<IWQ_SessionDataRootConfig> config = session.RootConfig();
    if (m_rootSet->count() > 0)
        XCtlCheck(config->SetDefaultConnection(Bstr(m_options.text)), "the default connection cannot be set");
    BSTR shown = nullptr;
    XCtlCheck(config->GetDefaultConnection(&shown), "the default connection cannot be read");
    const std::string text = XCtlUtf8(std::wstring(shown ? shown : L"", ::SysStringLen(shown)));
    ::SysFreeString(shown);
    Print(m_json ? Json{{"default", text}}.dump() : "default connection: " + text);
    return kExitOk;
}
