#include "xctlsession.h"

#include "XWQComBSTR.h"

namespace
{
const wchar_t kManager[] = L"WQSessionDataMng.WQSessionDataMng";
const wchar_t kRegistry[] = L"WQSessionDataMng.WQ_SessionDataStorageReg";
const wchar_t kEnvironment[] = L"WQSessionDataMng.WQ_SessionDataStorageEnv";
const wchar_t kVolatile[] = L"WQSessionDataMng.WQ_SessionDataStorageVolatile";
const wchar_t kDatabase[] = L"WQSessionDataMng.WQ_SessionDataStorageDb";
const wchar_t kRoot[] = L"WQSessionDataMng.WQ_SessionDataStorageRoot";
} // namespace

XCtlSession::XCtlSession(XCtlProfile profile) : m_profile(std::move(profile)) {}

IWQ_SessionDataMng* XCtlSession::Manager()
{
    if (!m_manager)
        m_manager = XCtlCreate<IWQ_SessionDataMng>(kManager);
    return m_manager.Get();
}

XComPtr<IWQ_SessionDataIOEx> XCtlSession::Root(const std::wstring& connection)
{
    XComPtr<IWQ_SessionDataIOEx>& root = m_roots[connection];
    if (root)
        return root;
    XComPtr<IWQ_SessionDataIOEx> made = XCtlCreate<IWQ_SessionDataIOEx>(kRoot, CLSCTX_LOCAL_SERVER);
    if (!connection.empty())
    {
        XComPtr<IWQ_SessionDataRootConfig> config;
        XCtlCheck(made.As(config), "the storage root has no configuration interface");
        XWQComBSTR text(connection.c_str());
        XCtlCheck(config->Open(text), "the storage root cannot open its connection");
    }
    root = made;
    return root;
}

XComPtr<IWQ_SessionDataRootConfig> XCtlSession::RootConfig()
{
    XComPtr<IWQ_SessionDataRootConfig> config;
    XCtlCheck(Root(std::wstring()).As(config), "the storage root has no configuration interface");
    return config;
}

XComPtr<IWQ_SessionDataStorage> XCtlSession::NewStorage(const XCtlStorageTarget& where)
{
    switch (where.kind)
    {
    case XCtlStorageTarget::Registry:
    {
        XComPtr<IWQ_SessionDataStorageReg> registry = XCtlCreate<IWQ_SessionDataStorageReg>(kRegistry);
        // The storage takes the hive by its position in the enumeration (0 to 4), not by the
        // enumeration's value.
        const auto hive = static_cast<SESSIONDATAREGKEY>(where.hive - SDRK_LOCAL_MACHINE);
        XCtlCheck(registry->Initialize(hive, XWQComBSTR(where.rootKey.c_str()), where.volatileKeys ? 1 : 0),
                  "the registry storage cannot open its key");
        return XComPtr<IWQ_SessionDataStorage>(registry.Get());
    }
    case XCtlStorageTarget::Environment:
        return XComPtr<IWQ_SessionDataStorage>(XCtlCreate<IWQ_SessionDataStorageEnv>(kEnvironment).Get());
    case XCtlStorageTarget::Volatile:
        return XComPtr<IWQ_SessionDataStorage>(XCtlCreate<IWQ_SessionDataStorageVolatile>(kVolatile).Get());
    case XCtlStorageTarget::Database:
    {
        XComPtr<IWQ_SessionDataStorageDb> database = XCtlCreate<IWQ_SessionDataStorageDb>(kDatabase);
        XCtlCheck(database->SetRoot(Root(where.connection).Get()), "the database storage cannot take its root");
        if (where.userProfile)
            XCtlCheck(database->SetUserProfileStorage(), "the database storage cannot keep data per user");
        XCtlCheck(database->SetRootKey(XWQComBSTR(where.rootKey.c_str())), "the database storage cannot take its root key");
        if (where.asyncSeconds > 0)
            XCtlCheck(database->SetAsyncWriteMode(where.asyncSeconds), "the database storage cannot write asynchronously");
        return XComPtr<IWQ_SessionDataStorage>(database.Get());
    }
    }
    throw XCtlUsageError("unknown storage kind");
}

void XCtlSession::Ensure(const XCtlCategory& category)
{
    if (category.number == 0)
    {
        for (const XCtlCategory& each : XCtlMergeOrder())
            if (m_profile.bindings.count(each.number))
                Ensure(each);
        return;
    }
    if (m_bound.count(category.number))
        return;
    const auto found = m_profile.bindings.find(category.number);
    if (found == m_profile.bindings.end())
        throw XCtlUsageError(std::string("the category ") + category.name +
                             " is not bound (bind it with --bind " + category.name + "=STORAGE or a profile)");
    const XCtlStorageTarget& where = found->second.second;
    const XComPtr<IWQ_SessionDataStorage> storage = NewStorage(where);
    XCtlCheck(Manager()->SetStorage(storage.Get(), category.type, where.cached ? 1 : -1),
              std::string("the category ") + category.name + " cannot be bound");
    m_bound.insert(category.number);
    if (where.kind == XCtlStorageTarget::Database && where.asyncSeconds > 0)
        m_async.insert(category.number);
}

void XCtlSession::FlushAsync()
{
    for (const int number : m_async)
    {
        const XCtlCategory category = XCtlParseCategory(std::to_string(number));
        XCtlCheck(Manager()->FlushAsyncStorage(category.type),
                  std::string("the asynchronous writes of ") + category.name + " did not all reach the database");
    }
}
