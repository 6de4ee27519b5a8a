#include "xctldump.h"

#include "xcomtypes.h"
#include "xctlfailure.h"
#include "XWQComBSTR.h"

#include <nlohmann/json.hpp>

namespace
{
const char kFormat[] = "sdmctl-dump";
constexpr int kVersion = 1;

std::wstring Text(BSTR text)
{
    return text ? std::wstring(text, ::SysStringLen(text)) : std::wstring();
}

std::string CsvField(const std::string& text)
{
    if (text.find_first_of(",\"\r\n") == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (const char c : text)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string RegText(const std::string& text)
{
    std::string escaped;
    for (const char c : text)
    {
        if (c == '\\' || c == '"')
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}
} // namespace

std::vector<std::pair<std::wstring, std::wstring>> XCtlReadValues(IWQ_SessionDataMng* manager,
                                                                  SESSIONDATATYPE category, const std::wstring& key,
                                                                  HRESULT* result)
{
    XValueArray list;
    const HRESULT hr = XCtlCheck(
        manager->GetStringList(XWQComBSTR(key.c_str()), list.CountAddress(), list.ItemsAddress(), category),
        "cannot list the values of " + XCtlUtf8(key));
    if (result)
        *result = hr;
    std::vector<std::pair<std::wstring, std::wstring>> values;
    for (ULONG i = 0; i < list.Count(); ++i)
        values.emplace_back(Text(list[i].bstrValueName), Text(list[i].bstrValue));
    return values;
}

std::vector<std::wstring> XCtlReadSubKeys(IWQ_SessionDataMng* manager, SESSIONDATATYPE category,
                                          const std::wstring& key, bool recursive, HRESULT* result)
{
    XBstrArray list;
    const HRESULT hr = XCtlCheck(manager->GetSubKeys(XWQComBSTR(key.c_str()), recursive ? 1 : 0, list.CountAddress(),
                                                     list.ItemsAddress(), category),
                                 "cannot list the keys below " + XCtlUtf8(key));
    if (result)
        *result = hr;
    std::vector<std::wstring> keys;
    for (ULONG i = 0; i < list.Count(); ++i)
        keys.push_back(Text(list[i]));
    return keys;
}

std::vector<XCtlKeyValues> XCtlReadTree(IWQ_SessionDataMng* manager, SESSIONDATATYPE category, const std::wstring& key)
{
    // The whole subtree into the category's cache in one call where the layer can (a database
    // answers it in one round trip); the reads below then come from the cache. Where it cannot,
    // they read key by key.
    manager->UploadCache(XWQComBSTR(key.c_str()), category);
    std::vector<XCtlKeyValues> tree;
    if (!key.empty())
        tree.push_back({key, XCtlReadValues(manager, category, key)});
    for (const std::wstring& below : XCtlReadSubKeys(manager, category, key, true))
        tree.push_back({below, XCtlReadValues(manager, category, below)});
    return tree;
}

std::string XCtlDumpJson(const std::vector<XCtlKeyValues>& tree, const char* category, const std::wstring& root)
{
    nlohmann::ordered_json keys = nlohmann::ordered_json::array();
    for (const XCtlKeyValues& entry : tree)
    {
        nlohmann::ordered_json values = nlohmann::ordered_json::object();
        for (const auto& [name, value] : entry.values)
            values[XCtlUtf8(name)] = XCtlUtf8(value);
        keys.push_back({{"key", XCtlUtf8(entry.key)}, {"values", values}});
    }
    const nlohmann::ordered_json dump = {
        {"format", kFormat}, {"version", kVersion}, {"category", category}, {"root", XCtlUtf8(root)}, {"keys", keys}};
    return dump.dump(1) + "\n";
}

std::string XCtlDumpReg(const std::vector<XCtlKeyValues>& tree, const char* category)
{
    std::string text = std::string("; sdmctl dump of the category ") + category + "\n";
    for (const XCtlKeyValues& entry : tree)
    {
        std::string key = XCtlUtf8(entry.key);
        for (char& c : key)
            if (c == '/')
                c = '\\';
        text += "\n[" + key + "]\n";
        for (const auto& [name, value] : entry.values)
            text += "\"" + RegText(XCtlUtf8(name)) + "\"=\"" + RegText(XCtlUtf8(value)) + "\"\n";
    }
    return text;
}

std::string XCtlDumpCsv(const std::vector<XCtlKeyValues>& tree)
{
    std::string text = "key,name,value\r\n";
    for (const XCtlKeyValues& entry : tree)
        for (const auto& [name, value] : entry.values)
            text += CsvField(XCtlUtf8(entry.key)) + "," + CsvField(XCtlUtf8(name)) + "," + CsvField(XCtlUtf8(value)) +
                    "\r\n";
    return text;
}

std::vector<XCtlKeyValues> XCtlParseDump(const std::string& bytes, const std::string& path, std::string* category)
{
    nlohmann::json dump;
    try
    {
        dump = nlohmann::json::parse(bytes);
    }
    catch (const nlohmann::json::exception& e)
    {
        throw XCtlUsageError(path + " is not valid JSON: " + e.what());
    }
    if (!dump.is_object() || !dump.contains("format") || dump["format"] != kFormat)
        throw XCtlUsageError(path + " is not an sdmctl dump (\"format\": \"sdmctl-dump\")");
    if (!dump.contains("version") || !dump["version"].is_number_integer())
        throw XCtlUsageError(path + " has no format version");
    if (dump["version"].get<int>() > kVersion)
        throw XCtlUsageError(path + " is a dump of format version " + std::to_string(dump["version"].get<int>()) +
                             ", newer than this program's " + std::to_string(kVersion));
    if (category)
        *category = dump.contains("category") && dump["category"].is_string() ? dump["category"].get<std::string>() : "";
    if (!dump.contains("keys") || !dump["keys"].is_array())
        throw XCtlUsageError(path + ": \"keys\" is not a list");
    std::vector<XCtlKeyValues> tree;
    size_t index = 0;
    for (const nlohmann::json& entry : dump["keys"])
    {
        const std::string where = path + ": entry " + std::to_string(index++);
        if (!entry.is_object() || !entry.contains("key") || !entry["key"].is_string())
            throw XCtlUsageError(where + " has no \"key\" text");
        XCtlKeyValues key{XCtlWide(entry["key"].get<std::string>()), {}};
        if (entry.contains("values"))
        {
            if (!entry["values"].is_object())
                throw XCtlUsageError(where + ": \"values\" is not an object of name: text");
            for (const auto& [name, value] : entry["values"].items())
            {
                if (!value.is_string())
                    throw XCtlUsageError(where + ": the value " + name + " is not a text");
                key.values.emplace_back(XCtlWide(name), XCtlWide(value.get<std::string>()));
            }
        }
        tree.push_back(std::move(key));
    }
    return tree;
}
