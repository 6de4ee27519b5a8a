// Reference-counted critical section and guarded data.
//
// XBasicRefCountCritSection<Traits> counts, per thread, how often that thread holds it, so a
// thread may lock again what it already holds. The underlying read/write lock is taken only on a
// thread's first reference and given back only when that thread's count falls to zero. The kind
// of a thread's first reference is the kind of its hold:
//   - a read hold is shared: several threads may hold read references at once;
//   - a write hold is exclusive; its thread may add read references (they count on its write hold);
//   - a thread that holds a read reference cannot add a write reference: the request is refused
//     with "unable to add a write lock reference to a read lock" and the thread keeps exactly the
//     references it had.
// Release never throws (it runs in destructors); its faults are written to the log book.
//
// Shared state lives in guarded data and is reached only through scoped proxies, which take a
// reference when they are made and release it when they die:
//   XCritData<T, Lock, Wrapper>      owns a T and its lock
//   XCritProxy<T, Lock, Wrapper>     write access for its lifetime (*proxy, proxy->)
//   XCritReadProxy_const<T>          read access for its lifetime (XCritReadProxy<T> is the same
//                                    type: a read proxy never writes, whatever the item's constness)
//   XCritDataPtr<T, Lock, Wrapper>   owns a T through a pointer and its lock
//   XCritProxyPtr<T, Lock, Wrapper>  write access to the pointer; Reset replaces the object and
//                                    destroys the old one under the lock
//   XCritReadProxyPtr_const<T>       read access to the pointed-to object
//   XSmartCritSection<Lock>          the lock wrapper: how references are taken and given back,
//                                    and the scoped references WriteRef and ReadRef on a lock by
//                                    itself (without a value)
// Proxies reach an item through its access interfaces (XCritProxyData_const<T> for reading,
// XCritData_write<T> for writing), so read proxies need only the value type.
#pragma once

#include "XCriticalSectionEx.h"
#include "XWQException.h"

#include <windows.h>
#include <map>
#include <memory>
#include <utility>

enum class XLockRefKind
{
    read,
    write
};

// How XBasicRefCountCritSection takes and gives back its underlying lock.
template <class L>
struct XCritSectionTraits
{
    using LockType = L;
    static void Lock(LockType& lock, XLockRefKind kind) noexcept
    {
        lock.Lock(kind == XLockRefKind::read ? LockType::lockRead : LockType::lockWrite);
    }
    static void Unlock(LockType& lock, XLockRefKind kind) noexcept
    {
        lock.Unlock(kind == XLockRefKind::read ? LockType::lockRead : LockType::lockWrite);
    }
};

// Reports of the reference-counted critical section (source unit "XBasicCritSection").
namespace XBasicCritSectionReport
{
extern const wchar_t* const kWriteOnReadRefused;  // "unable to add a write lock reference to a read lock"
extern const wchar_t* const kNotLocked;           // release by a thread without a reference
extern const wchar_t* const kAlreadyUnlocked;     // release below zero
extern const wchar_t* const kEntryNotRemoved;     // entry referenced again while being removed

// Throws E_FAIL, severity 8, with kWriteOnReadRefused.
[[noreturn]] void RefuseWriteOnRead();
// Writes a fault of ReleaseLockRef to the log book as a system exception of severity 8.
void LogReleaseFault(const wchar_t* message) noexcept;
} // namespace XBasicCritSectionReport

// A plain (non-counting) critical section with its scoped guard; guards the reference table.
class XPlainCritSection
{
public:
    XPlainCritSection() noexcept { ::InitializeCriticalSection(&m_section); }
    ~XPlainCritSection() { ::DeleteCriticalSection(&m_section); }
    XPlainCritSection(const XPlainCritSection&) = delete;
    XPlainCritSection& operator=(const XPlainCritSection&) = delete;

    class Guard
    {
    public:
        explicit Guard(XPlainCritSection& section) noexcept : m_section(section)
        {
            ::EnterCriticalSection(&m_section.m_section);
        }
        ~Guard() { ::LeaveCriticalSection(&m_section.m_section); }
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;

    private:
        XPlainCritSection& m_section;
    };

private:
    CRITICAL_SECTION m_section;
};

template <class Traits>
class XBasicRefCountCritSection
{
public:
    using LockType = typename Traits::LockType;

    XBasicRefCountCritSection() = default;
    XBasicRefCountCritSection(const XBasicRefCountCritSection&) = delete;
    XBasicRefCountCritSection& operator=(const XBasicRefCountCritSection&) = delete;

    // Adds a write reference of the calling thread; blocks on its first reference until the lock
    // is free. Throws (E_FAIL) when the thread already holds a read reference.
    void AddLockRef() { AddRef(XLockRefKind::write); }

    // Adds a read reference of the calling thread; blocks on its first reference while another
    // thread holds a write reference.
    void AddReadLockRef() { AddRef(XLockRefKind::read); }

    // Drops one reference of the calling thread; the last one gives the lock back. Faults are
    // logged, never thrown.
    void ReleaseLockRef() noexcept
    {
        const DWORD thread = ::GetCurrentThreadId();
        bool found = false;
        LONG count = 0;
        XLockRefKind kind = XLockRefKind::write;
        {
            XPlainCritSection::Guard guard(m_tableGuard);
            const auto entry = m_refs.find(thread);
            if (entry != m_refs.end())
            {
                found = true;
                count = --entry->second.count;
                kind = entry->second.kind;
            }
        }
        if (!found)
        {
            XBasicCritSectionReport::LogReleaseFault(XBasicCritSectionReport::kNotLocked);
            return;
        }
        if (count > 0)
            return;
        if (count < 0)
        {
            XBasicCritSectionReport::LogReleaseFault(XBasicCritSectionReport::kAlreadyUnlocked);
            return;
        }
        Traits::Unlock(m_lock, kind);
        bool stillReferenced = false;
        {
            XPlainCritSection::Guard guard(m_tableGuard);
            const auto entry = m_refs.find(thread);
            if (entry != m_refs.end())
            {
                if (entry->second.count == 0)
                    m_refs.erase(entry);
                else
                    stillReferenced = true;
            }
        }
        if (stillReferenced)
            XBasicCritSectionReport::LogReleaseFault(XBasicCritSectionReport::kEntryNotRemoved);
    }

private:
    struct Entry
    {
        LONG count;
        XLockRefKind kind;
    };

    void AddRef(XLockRefKind requested)
    {
        const DWORD thread = ::GetCurrentThreadId();
        LONG count = 0;
        XLockRefKind kind = requested;
        bool refused = false;
        {
            XPlainCritSection::Guard guard(m_tableGuard);
            auto entry = m_refs.find(thread);
            if (entry == m_refs.end())
                entry = m_refs.emplace(thread, Entry{0, requested}).first;
            if (entry->second.count == 0)
                entry->second.kind = requested;  // the first reference decides the kind
            count = ++entry->second.count;
            kind = entry->second.kind;
            if (count >= 2 && kind == XLockRefKind::read && requested == XLockRefKind::write)
            {
                // Refused: the thread keeps exactly the references it had.
                --entry->second.count;
                refused = true;
            }
        }
        if (refused)
            XBasicCritSectionReport::RefuseWriteOnRead();
        // Outside the table guard: a thread waiting here does not hold up other threads' bookkeeping.
        if (count == 1)
            Traits::Lock(m_lock, kind);
    }

    LockType m_lock;
    XPlainCritSection m_tableGuard;
    std::map<DWORD, Entry> m_refs;
};

// The reference-counted critical section of the program.
using XRefCountCritSection = XBasicRefCountCritSection<XCritSectionTraits<XCriticalSectionEx>>;

// ---------------------------------------------------------------------------------------------
// Scoped references on a lock by itself, and the lock wrapper.

template <class Lock>
class XSmartCritSectionBase
{
public:
    XSmartCritSectionBase(const XSmartCritSectionBase&) = delete;
    XSmartCritSectionBase& operator=(const XSmartCritSectionBase&) = delete;
    ~XSmartCritSectionBase() { m_lock.ReleaseLockRef(); }

protected:
    // The reference is taken here, so a refused reference leaves nothing to release.
    XSmartCritSectionBase(Lock& lock, XLockRefKind kind) : m_lock(lock)
    {
        if (kind == XLockRefKind::write)
            lock.AddLockRef();
        else
            lock.AddReadLockRef();
    }

private:
    Lock& m_lock;
};

// A write reference for the object's lifetime.
template <class Lock>
class _XSmartRefCountCritSection_Impl : public XSmartCritSectionBase<Lock>
{
public:
    explicit _XSmartRefCountCritSection_Impl(Lock& lock) : XSmartCritSectionBase<Lock>(lock, XLockRefKind::write) {}
};

// A read reference for the object's lifetime.
template <class Lock>
class _XSmartReadRefCountCritSection_Impl : public XSmartCritSectionBase<Lock>
{
public:
    explicit _XSmartReadRefCountCritSection_Impl(Lock& lock) : XSmartCritSectionBase<Lock>(lock, XLockRefKind::read) {}
};

template <class Lock>
struct XSmartCritSection
{
    using WriteRef = _XSmartRefCountCritSection_Impl<Lock>;
    using ReadRef = _XSmartReadRefCountCritSection_Impl<Lock>;

    static void AddWriteRef(Lock& lock) { lock.AddLockRef(); }
    static void AddReadRef(Lock& lock) { lock.AddReadLockRef(); }
    static void ReleaseRef(Lock& lock) noexcept { lock.ReleaseLockRef(); }
};

// ---------------------------------------------------------------------------------------------
// Access interfaces: what the proxies see of a guarded item.

template <class T>
class XCritProxyData_const
{
public:
    virtual void AddReadRef() const = 0;
    virtual void ReleaseRef() const noexcept = 0;
    virtual const T& ConstValue() const noexcept = 0;

protected:
    ~XCritProxyData_const() = default;
};

template <class T>
class XCritData_write
{
public:
    virtual void AddWriteRef() = 0;
    virtual void ReleaseWriteRef() noexcept = 0;
    virtual T& Value() noexcept = 0;

protected:
    ~XCritData_write() = default;
};

template <class T>
class XCritProxyData : public XCritProxyData_const<T>, public XCritData_write<T>
{
protected:
    ~XCritProxyData() = default;
};

// ---------------------------------------------------------------------------------------------
// Guarded data.

template <class T, class Lock = XRefCountCritSection, class Wrapper = XSmartCritSection<Lock>>
class XCritData final : public XCritProxyData<T>
{
public:
    template <class... Args>
    explicit XCritData(Args&&... args) : m_value(std::forward<Args>(args)...)
    {
    }
    XCritData(const XCritData&) = delete;
    XCritData& operator=(const XCritData&) = delete;

    void AddReadRef() const override { Wrapper::AddReadRef(m_lock); }
    void ReleaseRef() const noexcept override { Wrapper::ReleaseRef(m_lock); }
    const T& ConstValue() const noexcept override { return m_value; }
    void AddWriteRef() override { Wrapper::AddWriteRef(m_lock); }
    void ReleaseWriteRef() noexcept override { Wrapper::ReleaseRef(m_lock); }
    T& Value() noexcept override { return m_value; }

private:
    mutable Lock m_lock;
    T m_value;
};

// Scoped write access through the write interface.
template <class T>
class _XCritProxy_Impl
{
public:
    explicit _XCritProxy_Impl(XCritData_write<T>& data) : m_data(data) { data.AddWriteRef(); }
    ~_XCritProxy_Impl() { m_data.ReleaseWriteRef(); }
    _XCritProxy_Impl(const _XCritProxy_Impl&) = delete;
    _XCritProxy_Impl& operator=(const _XCritProxy_Impl&) = delete;

    T& operator*() const noexcept { return m_data.Value(); }
    T* operator->() const noexcept { return &m_data.Value(); }

private:
    XCritData_write<T>& m_data;
};

template <class T, class Lock = XRefCountCritSection, class Wrapper = XSmartCritSection<Lock>>
class XCritProxy : public _XCritProxy_Impl<T>
{
public:
    explicit XCritProxy(XCritData<T, Lock, Wrapper>& data) : _XCritProxy_Impl<T>(data) {}
};

// Scoped read access through the read interface.
template <class T>
class _XCritReadProxy_Impl_const
{
public:
    explicit _XCritReadProxy_Impl_const(const XCritProxyData_const<T>& data) : m_data(data) { data.AddReadRef(); }
    ~_XCritReadProxy_Impl_const() { m_data.ReleaseRef(); }
    _XCritReadProxy_Impl_const(const _XCritReadProxy_Impl_const&) = delete;
    _XCritReadProxy_Impl_const& operator=(const _XCritReadProxy_Impl_const&) = delete;

    const T& operator*() const noexcept { return m_data.ConstValue(); }
    const T* operator->() const noexcept { return &m_data.ConstValue(); }

private:
    const XCritProxyData_const<T>& m_data;
};

template <class T>
class XCritReadProxy_const : public _XCritReadProxy_Impl_const<T>
{
public:
    explicit XCritReadProxy_const(const XCritProxyData_const<T>& data) : _XCritReadProxy_Impl_const<T>(data) {}
};

template <class T>
using XCritReadProxy = XCritReadProxy_const<T>;

// ---------------------------------------------------------------------------------------------
// Guarded owned pointers.

template <class T>
using XCritDataPtr_write = XCritData_write<std::unique_ptr<T>>;
template <class T>
using XCritProxyDataPtr = XCritProxyData<std::unique_ptr<T>>;
template <class T>
using XCritProxyDataPtr_const = XCritProxyData_const<std::unique_ptr<T>>;

template <class T, class Lock = XRefCountCritSection, class Wrapper = XSmartCritSection<Lock>>
using XCritDataPtr = XCritData<std::unique_ptr<T>, Lock, Wrapper>;

template <class T>
class _XCritProxyPtr_Impl
{
public:
    explicit _XCritProxyPtr_Impl(XCritDataPtr_write<T>& data) : m_proxy(data) {}

    T* Get() const noexcept { return m_proxy->get(); }
    T* operator->() const noexcept { return Get(); }
    explicit operator bool() const noexcept { return Get() != nullptr; }
    // Replaces the guarded object; the old one is destroyed here, under the lock.
    void Reset(std::unique_ptr<T> object) noexcept { *m_proxy = std::move(object); }

private:
    _XCritProxy_Impl<std::unique_ptr<T>> m_proxy;
};

template <class T, class Lock = XRefCountCritSection, class Wrapper = XSmartCritSection<Lock>>
class XCritProxyPtr : public _XCritProxyPtr_Impl<T>
{
public:
    explicit XCritProxyPtr(XCritDataPtr<T, Lock, Wrapper>& data) : _XCritProxyPtr_Impl<T>(data) {}
};

template <class T>
class _XCritReadProxyPtr_Impl_const
{
public:
    explicit _XCritReadProxyPtr_Impl_const(const XCritProxyDataPtr_const<T>& data) : m_proxy(data) {}

    const T* Get() const noexcept { return m_proxy->get(); }
    const T* operator->() const noexcept { return Get(); }
    explicit operator bool() const noexcept { return Get() != nullptr; }

private:
    _XCritReadProxy_Impl_const<std::unique_ptr<T>> m_proxy;
};

template <class T>
class XCritReadProxyPtr_const : public _XCritReadProxyPtr_Impl_const<T>
{
public:
    explicit XCritReadProxyPtr_const(const XCritProxyDataPtr_const<T>& data) : _XCritReadProxyPtr_Impl_const<T>(data) {}
};
