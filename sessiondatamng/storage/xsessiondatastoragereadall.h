// ReadAllData of the registry and the environment storage: one procedure for both, working only
// through the storage's own ReadData and GetSubKeys. Its error location names
// "XSessionDataStorageEnv::ReadAllData" in either storage.
#pragma once

#include "xsdmreporter.h"
#include "xsessiondatamng_h.h"

// 1. Null out pointers are answered by the pointer check; *pulCount is set to 0.
// 2. ReadData of the lower-cased root key name; only on S_OK a first record: that lower-cased
//    name with the pairs as returned.
// 3. GetSubKeys of the root key name as given, recursive; on S_OK one record per non-null name,
//    in list order, with its ReadData pairs on S_OK, else with no pairs.
// 4. Collected records are handed out (count and CoTaskMemAlloc array) whatever step 3 answered;
//    with none, *ppKeySessionDataList is left as it was.
// 5. The answer is that of the sub-key query.
// report is the storage's own (its source unit and error-info GUID).
HRESULT XReadAllStorageData(IWQ_SessionDataStorage* storage, const XSdmReporter& report, BSTR bstrRootKeyName,
                            ULONG* pulCount,
                            tagKEY_SESSIONDATAVALUE** ppKeySessionDataList) noexcept;
