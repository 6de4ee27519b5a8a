// The containers that the registry and the environment storage work on inside, and their
// conversions from and to the arrays that cross the storage interface.
#pragma once

#include "XWQComBSTR.h"
#include "xsessiondatamng_h.h"

#include <map>
#include <vector>

// Value name -> value, ordered by ordinal, case-sensitive comparison of the names.
using XStoragePairs = std::map<XWQComBSTR, XWQComBSTR>;
// Key names as a storage lists them.
using XStorageKeyNames = std::vector<XWQComBSTR>;

// The caller's records as pairs, entered in array order, so that of two records with the same
// name the later one wins. A null string counts as an empty one.
XStoragePairs XPairsFromRecords(ULONG count, const tagSESSIONDATAVALUE* records);

// Hands pairs out as a CoTaskMemAlloc array of records, each name and value a fresh BSTR, in
// map order. The out values are written only when everything was allocated (else the module's
// out-of-memory exception is raised); no pairs give a count of 0 and a null array.
void XHandOutPairs(const XStoragePairs& pairs, ULONG* count, tagSESSIONDATAVALUE** records);

// Hands names out as a CoTaskMemAlloc array of fresh BSTRs, in list order; as XHandOutPairs.
void XHandOutKeyNames(const XStorageKeyNames& names, ULONG* count, BSTR** list);
