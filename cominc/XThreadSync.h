// Win32 events and the message-pumping wait.
//
// Every wait here keeps dispatching the calling thread's window messages, so that a thread in a
// single-threaded apartment that waits keeps serving the COM calls that arrive for its objects.
// Failures are raised as the error library's exceptions (source unit "XThreadSync").
#pragma once

#include <windows.h>
#include <utility>

// Owner of a Win32 handle (event, thread): closes it when replaced or destroyed.
class XHandle
{
public:
    XHandle() noexcept = default;
    explicit XHandle(HANDLE handle) noexcept : m_handle(handle) {}
    XHandle(XHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    XHandle& operator=(XHandle&& other) noexcept
    {
        Reset(std::exchange(other.m_handle, nullptr));
        return *this;
    }
    XHandle(const XHandle&) = delete;
    XHandle& operator=(const XHandle&) = delete;
    ~XHandle() { Reset(); }

    HANDLE Get() const noexcept { return m_handle; }
    explicit operator bool() const noexcept { return m_handle != nullptr; }
    void Reset(HANDLE handle = nullptr) noexcept
    {
        if (m_handle && m_handle != handle)
            ::CloseHandle(m_handle);
        m_handle = handle;
    }
    HANDLE Release() noexcept { return std::exchange(m_handle, nullptr); }

private:
    HANDLE m_handle = nullptr;
};

class XThreadSync
{
public:
    // Auto-reset event, unnamed, default security; "CreateEvent failed" when none results.
    static void CreateEventAutoReset(XHandle& event, bool initialState);
    // Manual-reset event, otherwise as CreateEventAutoReset.
    static void CreateEvent(XHandle& event, bool initialState);

    // Null handle: "wait handle is NULL"; a failing SetEvent/ResetEvent: "wait for signaled
    // event failed". ResetEvent reports under the name XThreadSync::SetEvent, as SetEvent does.
    static void SetEvent(HANDLE event);
    static void ResetEvent(HANDLE event);

    // Waits until the event is signalled (true) or the timeout in milliseconds has passed
    // (false), dispatching window messages meanwhile. Every message that wakes the wait starts
    // the full timeout again: the time already spent is deliberately not deducted.
    // Null handle: "wait handle is NULL"; WAIT_FAILED: "wait for signaled event failed"; a
    // timeout of an infinite wait: "infinite wait event unexpectedly timed out".
    static bool WaitForEvent(HANDLE event, DWORD timeoutMs);

    // What one MsgWaitForMultipleObjectsEx result means for WaitForEvent (reports the failures
    // listed there).
    enum class WaitStep
    {
        signalled,
        timedOut,
        messageArrived
    };
    static WaitStep EvaluateWaitResult(DWORD waitResult, DWORD timeoutMs, DWORD lastError);
};
