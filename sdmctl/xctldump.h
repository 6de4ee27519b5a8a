// Dumps: a key and its subtree as the manager lists them, written as JSON (which load reads
// back), as a .reg-style text and as CSV, and the JSON read back, checked whole before anything
// is written.
//   {"format": "sdmctl-dump", "version": 1, "category": "user", "root": "Users",
//    "keys": [{"key": "Users/Alice", "values": {"width": "1280"}}, ...]}
#pragma once

#include "xsessiondatamng_h.h"

#include <string>
#include <utility>
#include <vector>

struct XCtlKeyValues
{
    std::wstring key;
    std::vector<std::pair<std::wstring, std::wstring>> values;
};

// The key (unless it is the root, "") and every key below it in pre-order, with their values.
std::vector<XCtlKeyValues> XCtlReadTree(IWQ_SessionDataMng* manager, SESSIONDATATYPE category, const std::wstring& key);
// The values of one key (empty when there are none); raises XCtlFailure on a failure.
std::vector<std::pair<std::wstring, std::wstring>> XCtlReadValues(IWQ_SessionDataMng* manager,
                                                                  SESSIONDATATYPE category, const std::wstring& key,
                                                                  HRESULT* result = nullptr);
std::vector<std::wstring> XCtlReadSubKeys(IWQ_SessionDataMng* manager, SESSIONDATATYPE category,
                                          const std::wstring& key, bool recursive, HRESULT* result = nullptr);

std::string XCtlDumpJson(const std::vector<XCtlKeyValues>& tree, const char* category, const std::wstring& root);
std::string XCtlDumpReg(const std::vector<XCtlKeyValues>& tree, const char* category);
std::string XCtlDumpCsv(const std::vector<XCtlKeyValues>& tree);

// A JSON dump read back; XCtlUsageError for malformed JSON, another format or a newer version,
// or an entry that is not a key with text values.
// The dump's category name goes to *category.
std::vector<XCtlKeyValues> XCtlParseDump(const std::string& bytes, const std::string& path, std::string* category);
