// The kind of storage behind an IO layer, found by asking the storage for interfaces. The
// layers keep and report the small number (0 to 5), the offset of the matching
// SDM_STORAGE_TYPE member from SDM_STORAGE_NOT_INITIALIZED, never the member's full value:
// the manager hands the number to its clients unchanged.
#pragma once

#include "xsessiondatamng_h.h"

enum XStorageKind : ULONG
{
    XSTORAGE_NONE = 0,
    XSTORAGE_UNKNOWN = 1,
    XSTORAGE_REGISTRY = 2,
    XSTORAGE_DATABASE = 3,
    XSTORAGE_ENVIRONMENT = 4,
    XSTORAGE_VOLATILE = 5,
};

// Asks, in this order, for IWQ_SessionDataStorageDb (3), IWQ_SessionDataStorageReg (2),
// IWQ_SessionDataStorageEnv (4) and IWQ_SessionDataStorageVolatile (5); the first interface the
// storage has decides. None of them: 1. No storage: 0.
XStorageKind XClassifyStorage(IWQ_SessionDataStorage* storage) noexcept;

// The name of a kind of storage that cannot hold a NUL character inside a value ("registry",
// "environment": both keep values as zero-terminated text); null for the other kinds.
inline const wchar_t* XStorageRefusesNulValues(ULONG kind) noexcept
{
    return kind == XSTORAGE_REGISTRY ? L"registry" : kind == XSTORAGE_ENVIRONMENT ? L"environment" : nullptr;
}
