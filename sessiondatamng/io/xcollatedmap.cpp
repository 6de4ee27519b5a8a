#include "xcollatedmap.h"

#include "xsdmreporter.h"

#include <windows.h>

namespace
{
// Leading bytes of the three classes of texts, in VarBstrCmp order.
const char kEmptyText = '\0';
const char kLeadingNulText = '\1';
const char kOtherText = '\2';

// Most names fit; longer ones ask for the size first.
const int kStackKeyBytes = 256;

int SortKey(std::wstring_view text, BYTE* out, int size)
{
    return ::LCMapStringW(LOCALE_USER_DEFAULT, LCMAP_SORTKEY, text.data(), static_cast<int>(text.size()),
                          reinterpret_cast<LPWSTR>(out), size);
}

// A sort key the platform could not make: the collation of names fails, and with it the call.
[[noreturn]] void ThrowLastError()
{
    static const XSdmReporter report("xcollatedmap", GUID_NULL);
    report.RaiseSystem(__LINE__, XSDM_FUNCTION_NAME(L"XCollationKey"), ::GetLastError(), L"LCMapStringW failed");
}
} // namespace

std::string XCollationKey(std::wstring_view text)
{
    if (text.empty())
        return std::string(1, kEmptyText);

    std::string key(1, text.front() == L'\0' ? kLeadingNulText : kOtherText);
    BYTE stackKey[kStackKeyBytes];
    int bytes = SortKey(text, stackKey, kStackKeyBytes);
    if (bytes > 0)
        return key.append(reinterpret_cast<const char*>(stackKey), static_cast<size_t>(bytes));
    if (::GetLastError() != ERROR_INSUFFICIENT_BUFFER)
        ThrowLastError();

    const int needed = SortKey(text, nullptr, 0);
    if (needed <= 0)
        ThrowLastError();
    key.resize(1 + static_cast<size_t>(needed));
    bytes = SortKey(text, reinterpret_cast<BYTE*>(&key[1]), needed);
    if (bytes <= 0)
        ThrowLastError();
    key.resize(1 + static_cast<size_t>(bytes));
    return key;
}
