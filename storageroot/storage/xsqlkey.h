// Keys as the SQL storage keeps them. The access layers send one key in several spellings (as
// the client wrote it when storing, lower-cased when reading, "\" or "/" between the names), so
// the storage compares keys as the registry does: either separator, without regard to case.
//   text   the names joined by "/" (empty names between separators dropped), in the case of the
//          spelling that first created the key: what listings return;
//   norm   the text lower-cased: what is compared and indexed;
//   parent the norm of the key one level up ("" below the root).
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct XSqlKey
{
    std::wstring text;
    std::wstring norm;
    std::wstring parent;

    // The key itself and every key above it, from the top (the root, "", excluded).
    std::vector<XSqlKey> Lineage() const;
    // The bounds of the key's subtree: every norm from Lower() up to, not including, Upper().
    std::wstring Lower() const { return norm + L"/"; }
    std::wstring Upper() const { return norm + L"0"; }
};

XSqlKey XSqlKeyOf(std::wstring_view key);

// Orders key norms in depth-first pre-order: a key before its descendants, and siblings by
// name, "/" counting before every other character.
bool XSqlPreOrderLess(std::wstring_view a, std::wstring_view b) noexcept;
