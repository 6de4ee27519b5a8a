#include "threadingdoubles.h"

#include "testenv.h"

#include <memory>
#include <process.h>
#include <stdexcept>

size_t LogLinesWith(const std::string& text)
{
    size_t n = 0;
    for (const std::string& line : ReadLogBook())
        if (line.find(text) != std::string::npos)
            ++n;
    return n;
}

std::string NarrowText(const std::wstring& text)
{
    std::string out;
    for (wchar_t c : text)
        out += (c < 128) ? static_cast<char>(c) : '?';
    return out;
}

// ---------------------------------------------------------------------------------------------
std::atomic<int> CountingLockTraits::readLocks{0};
std::atomic<int> CountingLockTraits::writeLocks{0};
std::atomic<int> CountingLockTraits::readUnlocks{0};
std::atomic<int> CountingLockTraits::writeUnlocks{0};
std::function<void()> CountingLockTraits::afterUnlock;

void CountingLockTraits::Reset()
{
    readLocks = writeLocks = readUnlocks = writeUnlocks = 0;
    afterUnlock = nullptr;
}

void CountingLockTraits::Lock(LockType& lock, XLockRefKind kind) noexcept
{
    XCritSectionTraits<XCriticalSectionEx>::Lock(lock, kind);
    ++(kind == XLockRefKind::read ? readLocks : writeLocks);
}

void CountingLockTraits::Unlock(LockType& lock, XLockRefKind kind) noexcept
{
    ++(kind == XLockRefKind::read ? readUnlocks : writeUnlocks);
    XCritSectionTraits<XCriticalSectionEx>::Unlock(lock, kind);
    if (afterUnlock)
    {
        const std::function<void()> hook = std::move(afterUnlock);
        afterUnlock = nullptr;
        hook();
    }
}

// ---------------------------------------------------------------------------------------------
std::atomic<int> TestSchedulerTraits::starts{0};
HANDLE TestSchedulerTraits::lingerEvent = nullptr;
XHandle TestSchedulerTraits::lastThread;

namespace
{
struct TestThreadStart
{
    XThreadEntry entry;
    void* argument;
};

unsigned __stdcall RunTestThread(void* parameter)
{
    const std::unique_ptr<TestThreadStart> start(static_cast<TestThreadStart*>(parameter));
    const unsigned result = start->entry(start->argument);
    if (HANDLE linger = TestSchedulerTraits::lingerEvent)
        ::WaitForSingleObject(linger, 10000);
    return result;
}
} // namespace

void TestSchedulerTraits::Reset()
{
    starts = 0;
    lingerEvent = nullptr;
    lastThread.Reset();
}

XHandle TestSchedulerTraits::StartThread(XThreadEntry entry, void* argument, int)
{
    ++starts;
    auto start = std::make_unique<TestThreadStart>(TestThreadStart{entry, argument});
    HANDLE thread = reinterpret_cast<HANDLE>(::_beginthreadex(nullptr, 0, &RunTestThread, start.get(), 0, nullptr));
    if (!thread)
        throw std::runtime_error("_beginthreadex failed");
    start.release();
    HANDLE mine = nullptr;
    ::DuplicateHandle(::GetCurrentProcess(), thread, ::GetCurrentProcess(), &mine, 0, FALSE, DUPLICATE_SAME_ACCESS);
    lastThread.Reset(mine);
    return XHandle(thread);
}

// ---------------------------------------------------------------------------------------------
ThreadRecordingDispatch* ThreadRecordingDispatch::Create()
{
    auto* object = new XComObject<ThreadRecordingDispatch>();
    object->AddRef();
    return object;
}

HRESULT ThreadRecordingDispatch::InternalQueryInterface(REFIID iid, void** ppv)
{
    return XQueryInterfaces<IDispatch>(this, iid, ppv);
}

STDMETHODIMP ThreadRecordingDispatch::GetTypeInfoCount(UINT* count)
{
    lastCallerThread = ::GetCurrentThreadId();
    ++calls;
    if (count)
        *count = 0;
    return S_OK;
}

// ---------------------------------------------------------------------------------------------
bool ScriptedConnHandler::VerifyConnection(HRESULT& hr, bool& connectionFault, void* context)
{
    seen.push_back(hr);
    contexts.push_back(context);
    if (repeatsLeft > 0)
    {
        --repeatsLeft;
        return true;
    }
    IErrorInfo* info = nullptr;
    const bool hasErrorInfo = ::GetErrorInfo(0, &info) == S_OK && info;
    if (info)
    {
        ::SetErrorInfo(0, info);  // GetErrorInfo took it; leave it for the caller
        info->Release();
    }
    const bool rpcClass = HRESULT_FACILITY(hr) == FACILITY_RPC || hr == HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);
    if (rpcClass && !hasErrorInfo)
    {
        hr = kLatchedFailure;
        connectionFault = true;
    }
    return false;
}
