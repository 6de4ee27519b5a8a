// XCollatedMap<T>: a map from names to T, ordered as the IO layers order every name:
// a name sorts before another when VarBstrCmp(a, b, LOCALE_USER_DEFAULT, 0) answers VARCMP_LT
// (locale collation, case-sensitive, not ordinal).
//
// A lookup does not compare by locale at every step. Two indexes are kept:
//   - an exact-text hash index (XTextIndex), which answers every lookup of a name spelt as
//     stored (equal text is always collation-equal);
//   - a collation-ordered index keyed by sort keys (XCollationKey), which gives the order of
//     iteration and answers names that are collation-equal to a stored name but spelt
//     otherwise ("ss" and U+00DF, "e" + U+0301 and U+00E9, names with ignorable characters).
// Such names are one entry, as in a map ordered by VarBstrCmp: the entry keeps the spelling it
// was created with, and a later insert under another spelling finds (and assigns) that entry.
#pragma once

#include "XWQComBSTR.h"
#include "xtextindex.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>

// The address that a lookup of a value of type T reads after the lookup (prefetched with the
// entry); none by default. The map records it on every Put. For a T that only the map's Put can
// change in what Of answers, the recorded hint is exact, and FindHinted serves a hit from it
// without reading the entry. Specialised for the IO layers' value entries (their value's text).
template <class T>
struct XCollatedHint
{
    static const void* Of(const T&) noexcept { return nullptr; }
};

// Byte string whose memcmp order is the VarBstrCmp(LOCALE_USER_DEFAULT, 0) order of the texts:
// an empty text first, then texts that begin with U+0000 (VarBstrCmp puts them before all other
// non-empty texts), then all others, each class ordered by its LCMapStringW sort key.
std::string XCollationKey(std::wstring_view text);

template <class T>
class XCollatedMap
{
public:
    struct Entry
    {
        XWQComBSTR name;  // as first inserted
        T value;
    };

private:
    using Ordered = std::map<std::string, Entry>;

    // Iterates the entries in collation order, yielding Entry&.
    template <class Base, class E>
    class Iter
    {
    public:
        explicit Iter(Base it) : m_it(it) {}
        E& operator*() const { return m_it->second; }
        E* operator->() const { return &m_it->second; }
        Iter& operator++()
        {
            ++m_it;
            return *this;
        }
        bool operator==(const Iter& other) const { return m_it == other.m_it; }
        bool operator!=(const Iter& other) const { return m_it != other.m_it; }

    private:
        Base m_it;
    };

public:
    using iterator = Iter<typename Ordered::iterator, Entry>;
    using const_iterator = Iter<typename Ordered::const_iterator, const Entry>;

    XCollatedMap() = default;
    // Moving keeps the nodes (and so the text the hash index points into); copying would not.
    XCollatedMap(XCollatedMap&&) = default;
    XCollatedMap& operator=(XCollatedMap&&) = default;
    XCollatedMap(const XCollatedMap&) = delete;
    XCollatedMap& operator=(const XCollatedMap&) = delete;

    iterator begin() { return iterator(m_ordered.begin()); }
    iterator end() { return iterator(m_ordered.end()); }
    const_iterator begin() const { return const_iterator(m_ordered.begin()); }
    const_iterator end() const { return const_iterator(m_ordered.end()); }
    size_t Size() const noexcept { return m_ordered.size(); }
    bool Empty() const noexcept { return m_ordered.empty(); }

    // The entry for name (by text, else by collation), or null.
    Entry* Find(std::wstring_view name)
    {
        const auto found = Locate(name);
        return found == m_ordered.end() ? nullptr : &found->second;
    }
    const Entry* Find(std::wstring_view name) const { return const_cast<XCollatedMap*>(this)->Find(name); }
    T* FindValue(std::wstring_view name)
    {
        Entry* entry = Find(name);
        return entry ? &entry->value : nullptr;
    }
    bool Contains(std::wstring_view name) const { return Find(name) != nullptr; }

    // Whether name has an entry; hint receives XCollatedHint<T>::Of(its value) as recorded at
    // the entry's creation or last Put. A name found by its text is answered from the index
    // alone: the entry's memory is not read (a hit on a large table then costs one memory
    // access less).
    bool FindHinted(std::wstring_view name, const void*& hint) const
    {
        return const_cast<XCollatedMap*>(this)->Locate(name, &hint) != m_ordered.end();
    }

    // The entry for name, created with a default value when missing.
    Entry& Get(std::wstring_view name)
    {
        const uint32_t hash = Index::HashOf(name);
        if (const auto* exact = m_exact.Find(name, hash, EntryAddress))
            return (*exact)->second;
        std::string key = XCollationKey(name);
        auto found = m_ordered.find(key);
        if (found == m_ordered.end())
        {
            Entry fresh{XWQComBSTR(name.data(), static_cast<UINT>(name.size())), T()};
            found = m_ordered.emplace(std::move(key), std::move(fresh)).first;
            try
            {
                m_exact.Insert(View(found->second.name), hash, found, XCollatedHint<T>::Of(found->second.value));
            }
            catch (...)
            {
                m_ordered.erase(found);
                throw;
            }
        }
        return found->second;
    }
    // Sets name's value (creating the entry or replacing the value of an existing one).
    Entry& Put(std::wstring_view name, T value)
    {
        Entry& entry = Get(name);
        entry.value = std::move(value);
        const std::wstring_view stored = View(entry.name);
        m_exact.SetHint(stored, Index::HashOf(stored), XCollatedHint<T>::Of(entry.value));
        return entry;
    }

    bool Erase(std::wstring_view name)
    {
        const auto found = Locate(name);
        if (found == m_ordered.end())
            return false;
        const std::wstring_view stored = View(found->second.name);
        m_exact.Erase(stored, Index::HashOf(stored));
        m_ordered.erase(found);
        return true;
    }
    void Clear() noexcept
    {
        m_exact.Clear();
        m_ordered.clear();
    }

private:
    static std::wstring_view View(const XWQComBSTR& text) noexcept { return {text.c_str(), text.Length()}; }

    // The entry for name, or end(). With hint, the slot's hint is taken instead of prefetching
    // the entry (for a name not found by its text: the hint of the entry found by collation).
    typename Ordered::iterator Locate(std::wstring_view name, const void** hint = nullptr)
    {
        const uint32_t hash = Index::HashOf(name);
        const auto* exact = hint ? m_exact.Find(name, hash, NoEntry, hint) : m_exact.Find(name, hash, EntryAddress);
        if (exact)
            return *exact;
        const auto found = m_ordered.find(XCollationKey(name));
        if (hint)
            *hint = found == m_ordered.end() ? nullptr : XCollatedHint<T>::Of(found->second.value);
        return found;
    }

    // The exact index refers to the ordered index's nodes, which do not move, and to the names
    // in them, which never change.
    using Index = XTextIndex<typename Ordered::iterator>;
    static const void* EntryAddress(const typename Ordered::iterator& it) noexcept { return &it->second; }
    static const void* NoEntry(const typename Ordered::iterator&) noexcept { return nullptr; }

    Ordered m_ordered;
    Index m_exact;
};
