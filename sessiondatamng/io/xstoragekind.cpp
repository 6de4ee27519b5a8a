#include "xstoragekind.h"

namespace
{
bool Has(IWQ_SessionDataStorage* storage, REFIID iid) noexcept
{
    IUnknown* probe = nullptr;
    if (FAILED(storage->QueryInterface(iid, reinterpret_cast<void**>(&probe))) || !probe)
        return false;
    probe->Release();
    return true;
}
} // namespace

XStorageKind XClassifyStorage(IWQ_SessionDataStorage* storage) noexcept
{
    struct Probe
    {
        const IID* iid;
        XStorageKind kind;
    };
    static const Probe probes[] = {
        {&IID_IWQ_SessionDataStorageDb, XSTORAGE_DATABASE},
        {&IID_IWQ_SessionDataStorageReg, XSTORAGE_REGISTRY},
        {&IID_IWQ_SessionDataStorageEnv, XSTORAGE_ENVIRONMENT},
        {&IID_IWQ_SessionDataStorageVolatile, XSTORAGE_VOLATILE},
    };
    if (!storage)
        return XSTORAGE_NONE;
    for (const Probe& probe : probes)
    {
        if (Has(storage, *probe.iid))
            return probe.kind;
    }
    return XSTORAGE_UNKNOWN;
}
