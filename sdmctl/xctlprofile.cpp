#include "xctlprofile.h"

#include "xctlfailure.h"
#include "xctlfile.h"

#include <nlohmann/json.hpp>

namespace
{
void Bind(XCtlProfile& profile, const std::string& category, const std::string& where)
{
    const XCtlCategory parsed = XCtlParseCategory(category);
    if (parsed.number == 0)
        throw XCtlUsageError("the category 'all' cannot be bound: it reads across the others");
    profile.bindings[parsed.number] = {parsed, XCtlParseStorageTarget(where)};
}
} // namespace

XCtlProfile XCtlDefaultProfile(const std::string& app)
{
    XCtlProfile profile;
    profile.app = app;
    Bind(profile, "global", "registry:HKLM\\Software\\" + app + "\\Global");
    Bind(profile, "userdb", "db:" + app + ";user;async=5");
    Bind(profile, "machine", "registry:HKLM\\Software\\" + app + "\\Machine");
    Bind(profile, "user", "registry:HKCU\\Software\\" + app);
    Bind(profile, "volatile", "volatile");
    return profile;
}

void XCtlLoadProfile(const std::string& path, XCtlProfile& profile)
{
    nlohmann::json json;
    try
    {
        json = nlohmann::json::parse(XCtlReadFile(path));
    }
    catch (const nlohmann::json::exception& e)
    {
        throw XCtlUsageError("profile " + path + " is not valid JSON: " + e.what());
    }
    if (!json.is_object() || json.value("format", "") != "sdmctl-profile")
        throw XCtlUsageError("profile " + path + " is not an sdmctl profile (\"format\": \"sdmctl-profile\")");
    if (json.value("version", 0) > 1)
        throw XCtlUsageError("profile " + path + " has format version " + std::to_string(json.value("version", 0)) +
                             ", newer than this program's 1");
    if (json.contains("app") && json["app"].is_string())
        profile = XCtlDefaultProfile(json["app"].get<std::string>());
    if (!json.contains("bindings"))
        return;
    if (!json["bindings"].is_object())
        throw XCtlUsageError("profile " + path + ": \"bindings\" is an object of category: storage target");
    for (const auto& [category, where] : json["bindings"].items())
    {
        if (!where.is_string())
            throw XCtlUsageError("profile " + path + ": the binding of " + category + " is not a storage target text");
        Bind(profile, category, where.get<std::string>());
    }
}

void XCtlApplyBind(const std::string& binding, XCtlProfile& profile)
{
    const size_t equals = binding.find('=');
    if (equals == std::string::npos)
        throw XCtlUsageError("--bind takes CATEGORY=STORAGE, not '" + binding + "'");
    Bind(profile, binding.substr(0, equals), binding.substr(equals + 1));
}
