// The names a test may not add to except under its own: the sub-keys of HKCU\Software and the
// variables of the process environment ("HKCU\Software\<name>", "env <name>").
#pragma once

#include <set>
#include <string>

std::set<std::wstring> OutsideNames();
// The names in now that were not in before and do not begin with one of the own prefixes.
std::set<std::wstring> AddedOutside(const std::set<std::wstring>& before, const std::set<std::wstring>& now,
                                    std::initializer_list<std::wstring> own);
