// Helpers of the storage-root tests: root objects in process over a test database and a caller
// identity that a test chooses.
#pragma once

#include "XWQComBSTR.h"
#include "iotesthelpers.h"
#include "xcomobject.h"
#include "xsessiondatamng_h.h"
#include "xstorageroot_h.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// A root object made in this process (the root's class itself, not a registered server), opened
// on connection when one is given; null when that fails (*hr says why).
XComPtr<IWQ_SessionDataIOEx> NewRootObject(const std::wstring& connection = std::wstring(), HRESULT* hr = nullptr);

// The root's configuration interface.
XComPtr<IWQ_SessionDataRootConfig> ConfigOf(const XComPtr<IWQ_SessionDataIOEx>& root);

// Makes the calling user, for the scope, the user a test names (every thread of the process
// sees it); the platform's identity comes back at the end.
class CallerIs
{
public:
    explicit CallerIs(const std::wstring& sid);
    ~CallerIs();
    CallerIs(const CallerIs&) = delete;
    CallerIs& operator=(const CallerIs&) = delete;
};

// Whether second reads from the cache first writes to: a value written through first, then
// changed in the database file behind both, must still read as written through second (a root
// with a cache of its own would read the file).
::testing::AssertionResult ReadsFromOneCache(IWQ_SessionDataIOEx* first, IWQ_SessionDataIOEx* second,
                                             const std::wstring& path);
