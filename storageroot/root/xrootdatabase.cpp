#include "xrootdatabase.h"

#include "xsdmreporter.h"
#include "xsessiondataioex.h"
#include "xsessiondatastoragesql.h"
#include "xsqlconnect.h"
#include "xsqldialect.h"
#include "xuncachedioex.h"

#include <map>
#include <mutex>

namespace
{
// The databases served by this process, by database: held by their root objects, so an entry
// whose database is gone (the last root object on it released) is replaced on the next Open.
struct Served
{
    std::mutex lock;
    std::map<std::wstring, std::weak_ptr<XRootDatabase>> databases;
};

Served& TheServed()
{
    static Served served;
    return served;
}

const XSdmReporter& Report()
{
    static const XSdmReporter report("xrootdatabase", CLSID_WQ_SessionDataStorageSql);
    return report;
}

// The IO layer over a new storage on the database: the cached extended layer, or for a database
// that servers on other machines write too, the uncached one (XUncachedIOEx).
XComPtr<IWQ_SessionDataIOEx> NewIO(const std::wstring& connection)
{
    std::unique_ptr<XSqlConnection> opened = XSqlConnect(connection);
    const bool networked = opened->Dialect().Networked();
    const XComPtr<IWQ_SessionDataStorageEx> storage = XSessionDataStorageSql::Create(std::move(opened));
    if (networked)
        return XUncachedIOEx::Create(storage.Get());
    XComPtr<IWQ_SessionDataIOEx> io;
    HRESULT hr = XComObject<XSessionDataIOEx>::Create(IID_IWQ_SessionDataIOEx,
                                                      reinterpret_cast<void**>(io.ReleaseAndGetAddressOf()));
    if (hr == E_OUTOFMEMORY)
        XSdmRaiseOutOfMemory();
    if (SUCCEEDED(hr))
        hr = io->SetStorage(storage.Get());
    if (FAILED(hr))
        Report().Raise(__LINE__, XSDM_FUNCTION_NAME(L"XRootDatabase::Open"), hr,
                       L"the cached IO layer cannot be bound to the database");
    return io;
}
} // namespace

XRootDatabase::XRootDatabase(std::wstring connection, std::wstring shown, XComPtr<IWQ_SessionDataIOEx> io) noexcept
    : m_connection(std::move(connection)), m_shown(std::move(shown)), m_io(std::move(io))
{
}

std::shared_ptr<XRootDatabase> XRootDatabase::Open(const std::wstring& connection)
{
    const XSqlParsedConnection parsed = XSqlParseConnection(connection);
    Served& served = TheServed();
    // Opening holds the lock: two first users of one database make one cache.
    std::lock_guard<std::mutex> guard(served.lock);
    std::weak_ptr<XRootDatabase>& entry = served.databases[parsed.database];
    if (std::shared_ptr<XRootDatabase> open = entry.lock())
    {
        // The same file in another spelling, with the same options, is the same database.
        if (::CompareStringOrdinal(open->m_connection.c_str(), -1, parsed.canonical.c_str(), -1, TRUE) != CSTR_EQUAL)
            Report().Raise(__LINE__, XSDM_FUNCTION_NAME(L"XRootDatabase::Open"), E_INVALIDARG,
                           XWQComBSTR((L"the database is open in this server with other options: " + open->Connection())
                                          .c_str()));
        return open;
    }
    auto opened = std::make_shared<XRootDatabase>(parsed.canonical, parsed.shown, NewIO(parsed.canonical));
    entry = opened;
    return opened;
}
