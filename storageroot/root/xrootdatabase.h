// XRootDatabase: a database that the storage root serves in this process, the module's cached
// extended IO layer (WQ_SessionDataIOEx) over an SQL storage on it, or for a networked engine
// (PostgreSQL), whose data servers on other machines write too, an uncached one. Every root
// object of the process that uses the same database shares one: a value written through one root
// object is read at once through another. A database lives while a root object holds it.
#pragma once

#include "xcomobject.h"
#include "xsessiondatamng_h.h"

#include <memory>
#include <string>

class XRootDatabase
{
public:
    // The database that connection names, opened (with its schema made ready) unless this
    // process serves it already. A connection that names a database already served with other
    // options is refused (E_INVALIDARG): one file has one cache and one way to be written.
    static std::shared_ptr<XRootDatabase> Open(const std::wstring& connection);

    XRootDatabase(std::wstring connection, std::wstring shown, XComPtr<IWQ_SessionDataIOEx> io) noexcept;
    XRootDatabase(const XRootDatabase&) = delete;
    XRootDatabase& operator=(const XRootDatabase&) = delete;

    IWQ_SessionDataIOEx* IO() const noexcept { return m_io.Get(); }
    // The connection text in its canonical form, any password masked.
    const std::wstring& Connection() const noexcept { return m_shown; }

private:
    std::wstring m_connection;
    std::wstring m_shown;
    XComPtr<IWQ_SessionDataIOEx> m_io;
};
