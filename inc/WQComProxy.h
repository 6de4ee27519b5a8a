// Running captured interface calls on a connection that may break.
//
// XComProxyPolicy<I, ConnHandler> runs an operation (WQComFunctor::XOpFunBase<I>) through the
// registered invocation implementation (for example WQComFunctor::XSmartPtrFun over the target's
// smart pointer) and lets the connection handler classify failures:
//   - once a call has been found to have broken the connection, its HRESULT is latched in the
//     connection status word and every later call fails fast with it, without being invoked;
//   - a handler that answers true asks for the whole call to be repeated.
// Exceptions of the invocation become HRESULTs by the error contract: the wrapped exception by
// SetComError, a standard exception by SetComError with severity 8, anything else by
// SetComUnknownError (source unit "WQComProxy").
//
// ConnHandler offers bool VerifyConnection(HRESULT& hr, bool& connectionFault, void* context);
// it may change hr, sets connectionFault when the failure means the connection is broken, and
// gets the context that the caller handed to DoRemoteCall, unchanged.
#pragma once

#include "wqcomfunctor.h"
#include "XWQException.h"

#include <exception>
#include <functional>

namespace WQComProxy
{
namespace report
{
// "proxy call invokation implementation not registered" (thrown, E_FAIL).
[[noreturn]] void InvocationNotRegistered();
// The handlers of DoRemoteCall: error info and log book by the error contract; the HRESULT.
HRESULT OnWrappedException(const XWrappedWQException& exception) noexcept;
HRESULT OnStdException(const std::exception& exception) noexcept;
HRESULT OnUnknownException() noexcept;
} // namespace report

template <class I, class ConnHandler>
class XComConnectionPolicyBase
{
public:
    using Operation = WQComFunctor::XOpFunBase<I>;
    using Invocation = std::function<HRESULT(Operation&)>;

    explicit XComConnectionPolicyBase(ConnHandler* handler = nullptr) noexcept : m_handler(handler) {}
    XComConnectionPolicyBase(const XComConnectionPolicyBase&) = delete;
    XComConnectionPolicyBase& operator=(const XComConnectionPolicyBase&) = delete;

    void RegisterInvocation(Invocation invocation) { m_invocation = std::move(invocation); }
    // S_OK while the connection is good; the latched failure otherwise.
    HRESULT ConnectionStatus() const noexcept
    {
        return static_cast<HRESULT>(::InterlockedCompareExchange(&m_connectionStatus, 0, 0));
    }

protected:
    Invocation m_invocation;
    ConnHandler* m_handler;
    mutable volatile LONG m_connectionStatus = S_OK;
};

template <class I, class ConnHandler>
class XComProxyPolicy : public XComConnectionPolicyBase<I, ConnHandler>
{
public:
    using typename XComConnectionPolicyBase<I, ConnHandler>::Operation;
    using XComConnectionPolicyBase<I, ConnHandler>::XComConnectionPolicyBase;

    // Runs the operation (whose functor carries the call's arguments); never throws.
    HRESULT DoRemoteCall(Operation& operation, void* context)
    {
        const HRESULT latched = this->ConnectionStatus();
        if (FAILED(latched))
            return latched;

        HRESULT result = E_FAIL;
        try
        {
            if (!this->m_invocation)
                report::InvocationNotRegistered();
            result = this->m_invocation(operation);
        }
        catch (const XWrappedWQException& exception)
        {
            result = report::OnWrappedException(exception);
        }
        catch (const std::exception& exception)
        {
            result = report::OnStdException(exception);
        }
        catch (...)
        {
            result = report::OnUnknownException();
        }

        if (FAILED(result) && this->m_handler)
        {
            bool connectionFault = false;
            if (this->m_handler->VerifyConnection(result, connectionFault, context))
                return DoRemoteCall(operation, context);
            if (connectionFault)
                ::InterlockedExchange(&this->m_connectionStatus, static_cast<LONG>(result));
        }
        return result;
    }
};
} // namespace WQComProxy
