#include "xuserkeys.h"

#include "xcalleridentity.h"
#include "xcomtypes.h"
#include "xsdmreporter.h"

#include <cwchar>

namespace
{
const wchar_t kUserProfileName[] = L"<[HKCU]>";
const wchar_t kUserNameStart[] = L"<[user:";

std::wstring_view TextOf(const wchar_t* text) noexcept
{
    return text ? std::wstring_view(text) : std::wstring_view();
}

// The first name of a key: separators in front of it count for nothing, as the storage drops
// empty names.
std::wstring_view FirstName(std::wstring_view key) noexcept
{
    key.remove_prefix(std::min(key.find_first_not_of(L"/\\"), key.size()));
    return key.substr(0, std::min(key.find_first_of(L"/\\"), key.size()));
}

// What follows the first name (from its separator on).
std::wstring_view AfterFirstName(std::wstring_view key, std::wstring_view first) noexcept
{
    return key.substr(static_cast<size_t>(first.data() - key.data()) + first.size());
}

bool EqualNoCase(std::wstring_view a, std::wstring_view b) noexcept
{
    return a.size() == b.size() && _wcsnicmp(a.data(), b.data(), a.size()) == 0;
}

bool StartsNoCase(std::wstring_view text, std::wstring_view start) noexcept
{
    return text.size() >= start.size() && _wcsnicmp(text.data(), start.data(), start.size()) == 0;
}
} // namespace

bool XUserKeys::IsUserProfileKey(const wchar_t* key) noexcept
{
    return EqualNoCase(FirstName(TextOf(key)), kUserProfileName);
}

BSTR XUserKeys::ToStorage(BSTR key, XWQComBSTR& mapped)
{
    const std::wstring_view text(key ? key : L"", ::SysStringLen(key));
    const std::wstring_view first = FirstName(text);
    if (StartsNoCase(first, kUserNameStart))
    {
        static const XSdmReporter report("xuserkeys", GUID_NULL);
        report.Raise(__LINE__, XSDM_FUNCTION_NAME(L"XUserKeys::ToStorage"), E_ACCESSDENIED,
                     L"keys beginning with \"<[user:\" are reserved for the storage root");
    }
    if (!EqualNoCase(first, kUserProfileName))
        return key;
    const std::wstring own =
        std::wstring(kUserNameStart) + XCallerSid() + L"]>" + std::wstring(AfterFirstName(text, first));
    mapped.Attach(XNewBstr(own.data(), own.size()));
    return mapped;
}

namespace
{
// Decides, for the names of one answer, which the caller sees and how (the caller's SID is
// asked for only when a name is a user's).
class ClientView
{
public:
    // False for another user's name; else true, with name turned as the client knows it.
    bool Show(BSTR& name)
    {
        const std::wstring_view text(name ? name : L"", ::SysStringLen(name));
        const std::wstring_view first = FirstName(text);
        if (!StartsNoCase(first, kUserNameStart))
            return true;
        if (m_own.empty())
            m_own = std::wstring(kUserNameStart) + XCallerSid() + L"]>";
        if (!EqualNoCase(first, m_own))
            return false;
        const std::wstring client = std::wstring(kUserProfileName) + std::wstring(AfterFirstName(text, first));
        BSTR replaced = XNewBstr(client.data(), client.size());
        ::SysFreeString(name);
        name = replaced;
        return true;
    }

private:
    std::wstring m_own;
};

// Keeps the items that keep(item) says to keep, in order; frees the others with drop(item).
template <class Array, class Keep, class Drop>
void Filter(Array& array, Keep&& keep, Drop&& drop)
{
    ULONG kept = 0;
    for (ULONG i = 0; i < array.Count(); ++i)
    {
        if (keep(array[i]))
            array[kept++] = array[i];
        else
            drop(array[i]);
    }
    *array.CountAddress() = kept;
}
} // namespace

void XUserKeys::ToClient(XBstrArray& names)
{
    ClientView view;
    Filter(names, [&](BSTR& name) { return view.Show(name); }, [](BSTR& name) { ::SysFreeString(name); });
}

void XUserKeys::ToClient(XKeyValueArray& records)
{
    ClientView view;
    Filter(
        records, [&](tagKEY_SESSIONDATAVALUE& record) { return view.Show(record.bstrKeyName); },
        [](tagKEY_SESSIONDATAVALUE& record) {
            ::SysFreeString(record.bstrKeyName);
            XFreeValueArray(record.pSessionDataValue, record.ulCount);
        });
}
