// XStorageRootConnHandler: classifies the failure of a call on the storage root for the proxy
// policy (WQComProxy::XComProxyPolicy) that the asynchronous storage delegator runs its piped
// calls through, and keeps the retained HRESULT of those calls.
//
// After a failed call (VerifyConnection):
//   - E_OUTOFMEMORY never breaks the connection;
//   - an RPC-class failure (IsRpcClassError) without COM error information means the connection
//     to the root is broken: the result becomes 0x80040851 and the policy latches it;
//   - the ServerPool time-out 0x80040867 without COM error information latches unchanged;
//   - error information that the call left is kept on the thread (taken over, not logged);
//     where there is none, the handler sets its own application error (logged).
// VerifyConnection never asks for a call to be repeated.
#pragma once

#include "XBasicCritSection.h"

#include <windows.h>

class XStorageRootConnHandler
{
public:
    // The result of a call that broke the connection to the storage root.
    static constexpr HRESULT kRpcConnectionError = static_cast<HRESULT>(0x80040851);
    // The ServerPool time-out of a call.
    static constexpr HRESULT kServerPoolTimeout = static_cast<HRESULT>(0x80040867);

    XStorageRootConnHandler() : m_retained(S_OK) {}
    XStorageRootConnHandler(const XStorageRootConnHandler&) = delete;
    XStorageRootConnHandler& operator=(const XStorageRootConnHandler&) = delete;

    // Called by the proxy policy after a failed call; hr may be changed; context is not used.
    // Always false (never repeat the call).
    bool VerifyConnection(HRESULT& hr, bool& connectionFault, void* context);

    // True where hr is a failure of the remote-call layer (the connection, not the callee).
    static bool IsRpcClassError(HRESULT hr) noexcept;

    // The retained HRESULT: the first failure handed over since the last reset; S_OK where none.
    HRESULT Retained() const;
    void ResetRetained();

private:
    void Retain(HRESULT hr);

    XCritData<long> m_retained;
};
