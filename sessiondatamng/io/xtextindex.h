// XTextIndex<Ref>: an exact-text hash index from texts to references. Open addressing with
// linear probing in one flat array, at most three quarters full, deletion by backward shift.
//
// Built for large tables, where every access misses the processor's caches and the number of
// accesses made one after another decides a lookup's cost. Each slot keeps what a probe needs
// without leaving the slot: a 32-bit hash, the text's length and address, the reference and a
// hint (an address the caller will read next, such as the value's text). On a probable hit, the
// stored text and the hint are requested from memory together (prefetch), and so is the
// referenced entry when the caller asks for it, so that a hit waits for the slot and then for
// one more round of memory accesses. A caller that keeps the hint exact can answer a hit from
// the hint alone and spare the entry's memory access altogether; for any other caller a stale
// hint costs nothing but a wasted prefetch.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>
#include <xmmintrin.h>

inline void XPrefetch(const void* address) noexcept
{
    if (address)
        _mm_prefetch(static_cast<const char*>(address), _MM_HINT_T0);
}

template <class Ref>
class XTextIndex
{
public:
    static uint32_t HashOf(std::wstring_view text) noexcept
    {
        const size_t full = std::hash<std::wstring_view>()(text);
        const uint32_t hash = static_cast<uint32_t>(full ^ (full >> 32));
        return hash == kEmpty ? 1u : hash;  // 0 marks an empty slot
    }

    // The reference stored for text (hash = HashOf(text)), or null; hint, when given, receives
    // the slot's hint. entryOf gives the address of what a reference leads to, prefetched with
    // the text and the hint (null: nothing more to prefetch).
    template <class EntryOf>
    const Ref* Find(std::wstring_view text, uint32_t hash, EntryOf entryOf, const void** hint = nullptr) const noexcept
    {
        const Slot* slot = Probe(text, hash, entryOf);
        if (slot && hint)
            *hint = slot->hint;
        return slot ? &slot->ref : nullptr;
    }

    // Adds text (its storage must stay put while indexed), which is not in the index yet.
    void Insert(std::wstring_view text, uint32_t hash, Ref ref, const void* hint)
    {
        if ((m_count + 1) * 4 > m_slots.size() * 3)
            Grow();
        Place(Slot{hash, static_cast<uint32_t>(text.size()), text.data(), std::move(ref), hint});
        ++m_count;
    }

    // Updates the hint of an indexed text.
    void SetHint(std::wstring_view text, uint32_t hash, const void* hint) noexcept
    {
        if (Slot* slot = const_cast<Slot*>(Probe(text, hash, [](const Ref&) { return nullptr; })))
            slot->hint = hint;
    }

    // Removes text, if indexed.
    void Erase(std::wstring_view text, uint32_t hash) noexcept
    {
        const Slot* found = Probe(text, hash, [](const Ref&) { return nullptr; });
        if (!found)
            return;
        const size_t mask = m_slots.size() - 1;
        size_t hole = static_cast<size_t>(found - m_slots.data());
        // Backward shift: later slots of the probe run move up into the hole when their home
        // position allows it, so that no lookup meets an empty slot before its text.
        for (size_t next = (hole + 1) & mask; m_slots[next].hash != kEmpty; next = (next + 1) & mask)
        {
            const size_t home = m_slots[next].hash & mask;
            const bool homeBetween = hole <= next ? (hole < home && home <= next) : (hole < home || home <= next);
            if (!homeBetween)
            {
                m_slots[hole] = std::move(m_slots[next]);
                hole = next;
            }
        }
        m_slots[hole] = Slot();
        --m_count;
    }

    void Clear() noexcept
    {
        m_slots.clear();
        m_count = 0;
    }

private:
    static const uint32_t kEmpty = 0;
    static const size_t kMinSlots = 16;

    struct Slot
    {
        uint32_t hash = kEmpty;
        uint32_t length = 0;
        const wchar_t* text = nullptr;
        Ref ref{};
        const void* hint = nullptr;
    };

    template <class EntryOf>
    const Slot* Probe(std::wstring_view text, uint32_t hash, EntryOf entryOf) const noexcept
    {
        if (m_slots.empty())
            return nullptr;
        const size_t mask = m_slots.size() - 1;
        for (size_t i = hash & mask;; i = (i + 1) & mask)
        {
            const Slot& slot = m_slots[i];
            if (slot.hash == kEmpty)
                return nullptr;
            if (slot.hash == hash && slot.length == text.size())
            {
                XPrefetch(entryOf(slot.ref));
                XPrefetch(slot.hint);
                if (std::wmemcmp(slot.text, text.data(), text.size()) == 0)
                    return &slot;
            }
        }
    }

    void Place(Slot slot) noexcept
    {
        const size_t mask = m_slots.size() - 1;
        size_t i = slot.hash & mask;
        while (m_slots[i].hash != kEmpty)
            i = (i + 1) & mask;
        m_slots[i] = std::move(slot);
    }

    void Grow()
    {
        std::vector<Slot> old(m_slots.empty() ? kMinSlots : m_slots.size() * 2);
        old.swap(m_slots);
        for (Slot& slot : old)
        {
            if (slot.hash != kEmpty)
                Place(std::move(slot));
        }
    }

    std::vector<Slot> m_slots;  // a power of two in size
    size_t m_count = 0;
};
