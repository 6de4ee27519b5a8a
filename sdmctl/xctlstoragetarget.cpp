#include "xctlstoragetarget.h"

#include "xctlfailure.h"

#include <cstdlib>
#include <utility>
#include <vector>

namespace
{
struct Hive
{
    const char* shortName;
    const char* longName;
    SESSIONDATAREGKEY key;
};

const Hive kHives[] = {
    {"HKCU", "HKEY_CURRENT_USER", SDRK_CURRENT_USER},   {"HKLM", "HKEY_LOCAL_MACHINE", SDRK_LOCAL_MACHINE},
    {"HKCR", "HKEY_CLASSES_ROOT", SDRK_CLASSES_ROOT},   {"HKU", "HKEY_USERS", SDRK_USERS},
    {"HKCC", "HKEY_CURRENT_CONFIG", SDRK_CURRENT_CONFIG},
};

std::string Upper(std::string text)
{
    for (char& c : text)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    return text;
}

// The parts between ';', a part's braced value kept whole.
std::vector<std::string> Parts(const std::string& text)
{
    std::vector<std::string> parts(1);
    for (size_t i = 0; i < text.size(); ++i)
    {
        const char c = text[i];
        if (c == ';')
        {
            parts.emplace_back();
            continue;
        }
        parts.back() += c;
        if (c != '{')
            continue;
        for (++i;; ++i)
        {
            if (i >= text.size())
                throw XCtlUsageError("storage target '" + text + "': a '{' is not closed");
            parts.back() += text[i];
            if (text[i] != '}')
                continue;
            if (i + 1 < text.size() && text[i + 1] == '}')
            {
                parts.back() += '}';
                ++i;
                continue;
            }
            break;
        }
    }
    return parts;
}

std::string Unbraced(const std::string& value)
{
    if (value.size() < 2 || value.front() != '{' || value.back() != '}')
        return value;
    std::string plain;
    for (size_t i = 1; i + 1 < value.size(); ++i)
    {
        plain += value[i];
        if (value[i] == '}')
            ++i;
    }
    return plain;
}

bool YesNo(const std::string& whole, const std::string& option, const std::string& value)
{
    if (value == "yes" || value == "true" || value == "1")
        return true;
    if (value == "no" || value == "false" || value == "0")
        return false;
    throw XCtlUsageError("storage target '" + whole + "': " + option + " is yes or no, not '" + value + "'");
}

void RegistryTarget(const std::string& whole, const std::string& target, XCtlStorageTarget& parsed)
{
    const size_t slash = target.find('\\');
    const std::string hive = Upper(target.substr(0, slash));
    for (const Hive& known : kHives)
        if (hive == known.shortName || hive == known.longName)
        {
            parsed.hive = known.key;
            parsed.rootKey = slash == std::string::npos ? std::wstring() : XCtlWide(target.substr(slash + 1));
            if (parsed.rootKey.empty())
                throw XCtlUsageError("storage target '" + whole + "': a registry storage needs a root key below the hive");
            return;
        }
    throw XCtlUsageError("storage target '" + whole + "': unknown hive '" + target.substr(0, slash) +
                         "' (HKCU, HKLM, HKCR, HKU, HKCC)");
}
} // namespace

XCtlStorageTarget XCtlParseStorageTarget(const std::string& text)
{
    const std::vector<std::string> parts = Parts(text);
    const std::string& head = parts.front();
    const size_t colon = head.find(':');
    const std::string kind = head.substr(0, colon);
    const std::string target = colon == std::string::npos ? std::string() : head.substr(colon + 1);
    XCtlStorageTarget parsed;
    if (kind == "registry" || kind == "reg")
    {
        parsed.kind = XCtlStorageTarget::Registry;
        RegistryTarget(text, target, parsed);
    }
    else if (kind == "env" || kind == "environment" || kind == "volatile")
    {
        parsed.kind = kind == "volatile" ? XCtlStorageTarget::Volatile : XCtlStorageTarget::Environment;
        if (!target.empty())
            throw XCtlUsageError("storage target '" + text + "': " + kind + " takes no target");
    }
    else if (kind == "db" || kind == "database")
    {
        parsed.kind = XCtlStorageTarget::Database;
        parsed.rootKey = XCtlWide(target);
        if (parsed.rootKey.empty())
            throw XCtlUsageError("storage target '" + text + "': a database storage needs a root key (db:Suite\\App)");
    }
    else
        throw XCtlUsageError("storage target '" + text + "': unknown storage '" + kind +
                             "' (registry:, env, volatile, db:)");
    for (size_t i = 1; i < parts.size(); ++i)
    {
        const size_t equals = parts[i].find('=');
        const std::string option = parts[i].substr(0, equals);
        const std::string value = equals == std::string::npos ? std::string() : Unbraced(parts[i].substr(equals + 1));
        if (option == "cache" && equals != std::string::npos)
            parsed.cached = YesNo(text, option, value);
        else if (option == "volatile" && parsed.kind == XCtlStorageTarget::Registry)
            parsed.volatileKeys = equals == std::string::npos || YesNo(text, option, value);
        else if (option == "user" && parsed.kind == XCtlStorageTarget::Database)
            parsed.userProfile = equals == std::string::npos || YesNo(text, option, value);
        else if (option == "async" && parsed.kind == XCtlStorageTarget::Database)
        {
            char* end = nullptr;
            parsed.asyncSeconds = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end || parsed.asyncSeconds < 0 || parsed.asyncSeconds > 120)
                throw XCtlUsageError("storage target '" + text + "': async is a number of seconds (0, or 3 to 120)");
        }
        else if (option == "connection" && parsed.kind == XCtlStorageTarget::Database && !value.empty())
            parsed.connection = XCtlWide(value);
        else if (!option.empty())
            throw XCtlUsageError("storage target '" + text + "': unknown option '" + option + "' for " + kind);
    }
    return parsed;
}

std::string XCtlFormatStorageTarget(const XCtlStorageTarget& parsed)
{
    std::string text;
    switch (parsed.kind)
    {
    case XCtlStorageTarget::Registry:
        for (const Hive& known : kHives)
            if (known.key == parsed.hive)
                text = std::string("registry:") + known.shortName + "\\" + XCtlUtf8(parsed.rootKey);
        text += parsed.volatileKeys ? ";volatile" : "";
        break;
    case XCtlStorageTarget::Environment:
        text = "env";
        break;
    case XCtlStorageTarget::Volatile:
        text = "volatile";
        break;
    case XCtlStorageTarget::Database:
        text = "db:" + XCtlUtf8(parsed.rootKey) + (parsed.userProfile ? ";user" : "") +
               (parsed.asyncSeconds ? ";async=" + std::to_string(parsed.asyncSeconds) : "");
        if (!parsed.connection.empty())
            text += ";connection={...}";
        break;
    }
    return text + (parsed.cached ? "" : ";cache=no");
}
