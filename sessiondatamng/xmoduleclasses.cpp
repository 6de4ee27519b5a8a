#include "xmoduleclasses.h"

#include "xcomobject.h"
#include "xsessiondatamng.h"
#include "xsessiondatamng_h.h"
#include "io/xsessiondataio.h"
#include "io/xsessiondataioex.h"
#include "io/xsessiondataioexdb.h"
#include "io/xsessiondataionocache.h"
#include "storage/xsessiondatastoragedb.h"
#include "storage/xsessiondatastorageenv.h"
#include "storage/xsessiondatastoragereg.h"
#include "storage/xsessiondatastoragevolatile.h"

namespace
{
template <class T>
HRESULT Create(IUnknown* outer, REFIID iid, void** ppv)
{
    return XCreateComObject<T>(outer, iid, ppv);
}

// Registration data kept as clients know it: the extended IO's ProgID lacks the usual prefix,
// both plain IO classes are described as the manager, and the database storage has one
// description on its ProgIDs and another on its class key.
const XObjectMapEntry kEntries[] = {
    {&CLSID_WQ_SessionDataMng, L"WQSessionDataMng", L"WQ Session Data Manager Class",
     L"WQ Session Data Manager Class", false, &Create<XSessionDataMng>},
    {&CLSID_WQ_SessionDataIOCache, L"WQ_SessionDataIOCache", L"WQ Session Data Manager Class",
     L"WQ Session Data Manager Class", false, &Create<XSessionDataIO>},
    {&CLSID_WQ_SessionDataIONoCache, L"WQ_SessionDataIONoCache", L"WQ Session Data Manager Class",
     L"WQ Session Data Manager Class", false, &Create<XSessionDataIONoCache>},
    {&CLSID_WQ_SessionDataIOExDB, L"WQ_SessionDataIOExDB", L"WQ Session Data Manager IOExDB Class",
     L"WQ Session Data Manager IOExDB Class", true, &Create<XSessionDataIOExDB>},
    {&CLSID_WQ_SessionDataStorageEnv, L"WQ_SessionDataStorageEnv", L"WQ Session Data Manager Storage Environment Class",
     L"WQ Session Data Manager Storage Environment Class", true, &Create<XSessionDataStorageEnv>},
    {&CLSID_WQ_SessionDataStorageVolatile, L"WQ_SessionDataStorageVolatile",
     L"WQ Session Data Manager Storage Volatile Class", L"WQ Session Data Manager Storage Volatile Class", false,
     &Create<XSessionDataStorageVolatile>},
    {&CLSID_WQ_SessionDataStorageReg, L"WQ_SessionDataStorageReg", L"WQ Session Data Storage Registry Class",
     L"WQ Session Data Storage Registry Class", false, &Create<XSessionDataStorageReg>},
    {&CLSID_WQ_SessionDataStorageDb, L"WQ_SessionDataStorageDb", L"WQ Session Data Manager Database Storage Class",
     L"WQ Session Data Manager Storage Database Class", false, &Create<XSessionDataStorageDb>},
    {&CLSID_WQ_SessionDataIOEx, L"SessionDataIOEx", L"XSessionDataIOEx Class", L"XSessionDataIOEx Class", false,
     &Create<XSessionDataIOEx>},
};
} // namespace

const XObjectMap& XModuleObjectMap()
{
    static const XObjectMap map{kEntries, kEntries + sizeof(kEntries) / sizeof(kEntries[0])};
    return map;
}
