// ODBC connection texts: "key=value" attributes joined by ';', a value in braces where it holds
// ';' or '}' ("}}" stands for '}' inside braces). Keys compare without regard to case.
#pragma once

#include <string>
#include <vector>

namespace XOdbcText
{
struct Attribute
{
    std::wstring key;
    std::wstring value;  // as written, braces included
};

// The attributes of text; raises E_INVALIDARG, naming the fault but not the text, for an
// attribute without '=' or a brace that is not closed.
std::vector<Attribute> Parse(const std::wstring& text);
std::wstring Join(const std::vector<Attribute>& attributes);
// Whether key names the password (PWD or PASSWORD).
bool IsPassword(const std::wstring& key) noexcept;
bool IsKey(const std::wstring& key, const wchar_t* name) noexcept;
// text with the value of every password attribute replaced by "***"; for messages and for
// showing a connection. A text that cannot be parsed loses everything after the first ';' or
// '=' that may start a password.
std::wstring Redacted(const std::wstring& text);
} // namespace XOdbcText
