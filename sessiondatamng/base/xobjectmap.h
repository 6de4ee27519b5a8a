// An object map: the classes a COM server serves, in registration and lookup order, with what
// registration writes for each and how an instance is made. The module and the storage-root
// server each have one.
#pragma once

#include <windows.h>
#include <objbase.h>

struct XObjectMapEntry
{
    const CLSID* clsid;
    // Name part of the ProgIDs: "WQSessionDataMng." + name (+ ".1" for the versioned one).
    const wchar_t* progIdName;
    // Description on the ProgID keys and on the class GUID key (they may differ).
    const wchar_t* progIdDescription;
    const wchar_t* classDescription;
    bool programmable;
    // Creates an instance, alone (outer null) or aggregated; null while the class is not built.
    HRESULT (*create)(IUnknown* outer, REFIID iid, void** ppv);
};

struct XObjectMap
{
    const XObjectMapEntry* begin;
    const XObjectMapEntry* end;

    // The entry for clsid, or null.
    const XObjectMapEntry* Find(REFCLSID clsid) const
    {
        for (const XObjectMapEntry* entry = begin; entry != end; ++entry)
        {
            if (::IsEqualCLSID(*entry->clsid, clsid))
                return entry;
        }
        return nullptr;
    }
};
