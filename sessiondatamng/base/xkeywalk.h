// XKeyWalk: the keys that a recursive walk over sub-keys is in, so that it never descends into
// one of them again. A storage may list a key among its own sub-keys (the environment storage
// lists a key that holds variables directly under it as a sub-key of itself) or list an
// ancestor; a walk that followed such a name would never end.
//
// Keys are compared as the storages address them: "\\" and "/" alike, a trailing separator
// ignored, without regard to case.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

class XKeyWalk
{
public:
    // The deepest a walk goes below the key it started from (the registry's own tree depth).
    static constexpr size_t kMaxDepth = 512;

    // The form in which keys are compared.
    static std::wstring Canonical(std::wstring_view key);

    // Whether key is one the walk is in (the key it started from, or one it descended into and
    // has not left).
    bool IsIn(std::wstring_view key) const;
    // Whether a descent from the current key would go past kMaxDepth.
    bool AtMaxDepth() const noexcept { return m_path.size() > kMaxDepth; }

    // Enters key for the life of the returned step.
    class Step
    {
    public:
        Step(const Step&) = delete;
        Step& operator=(const Step&) = delete;
        ~Step() { m_walk.m_path.pop_back(); }

    private:
        friend class XKeyWalk;
        explicit Step(XKeyWalk& walk) noexcept : m_walk(walk) {}
        XKeyWalk& m_walk;
    };
    [[nodiscard]] Step Enter(std::wstring_view key);

private:
    std::vector<std::wstring> m_path;
};
