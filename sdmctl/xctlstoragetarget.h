// Storage targets: where a category is kept, as one line of text (the --bind option, the values of
// a profile file; one parser for every client that names storages).
//   registry:<hive>\<root key>[;volatile][;cache=yes|no]   hive: HKCU, HKLM, HKCR, HKU, HKCC
//   env[;cache=yes|no]                                    the process environment
//   volatile[;cache=yes|no]                               kept by the cache only, for the process
//   db:<root key>[;user][;async=<seconds>][;cache=yes|no][;connection={<root connection>}]
//       the database behind the storage-root server: "user" keeps the keys per user, async
//       (3 to 120 seconds) writes on the storage's worker, connection opens the root on another
//       database than the configured default
// cache=yes (the default) binds the cached IO layer, cache=no the uncached one. An option's value
// in braces may hold ';' ("}}" stands for '}').
#pragma once

#include "xsessiondatamng_h.h"

#include <string>

struct XCtlStorageTarget
{
    enum Kind
    {
        Registry,
        Environment,
        Volatile,
        Database
    };
    Kind kind = Volatile;
    SESSIONDATAREGKEY hive = SDRK_CURRENT_USER;
    std::wstring rootKey;
    bool volatileKeys = false;
    bool cached = true;
    bool userProfile = false;
    long asyncSeconds = 0;
    std::wstring connection;
};

// The storage target a text names; XCtlUsageError, naming the fault, for anything else.
XCtlStorageTarget XCtlParseStorageTarget(const std::string& text);
// The storage target written back in its canonical form (every option that is not the default).
std::string XCtlFormatStorageTarget(const XCtlStorageTarget& target);
