// The proxy policy: invocation, the catch chain, latched connection failures and the repeat path.
#include "WQComProxy.h"
#include "recordingio.h"
#include "testenv.h"
#include "threadingdoubles.h"
#include "xsdmerror.h"

#include <gtest/gtest.h>
#include <new>
#include <stdexcept>

using namespace WQComFunctor;
using namespace WQComProxy;

namespace
{
using DeleteKeyFun = XFunP1<IWQ_SessionDataIOEx, &IWQ_SessionDataIOEx::DeleteKey, BSTR>;
using Policy = XComProxyPolicy<IWQ_SessionDataIOEx, ScriptedConnHandler>;
const HRESULT kServerUnavailable = HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);  // 0x800706BA

class ProxyPolicy : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ClearLogBook();
        ::SetErrorInfo(0, nullptr);
        io.Attach(RecordingIO::Create(true));
        operation = MakeOpFun(DeleteKeyFun(XWQComBSTR(L"Key")));
    }

    void RunOnTheRecordingIO(Policy& policy)
    {
        policy.RegisterInvocation(XSmartPtrFun<XComPtr<IWQ_SessionDataIOEx>>(XComPtr<IWQ_SessionDataIOEx>(io.Get())));
    }

    XComPtr<RecordingIO> io;
    std::unique_ptr<XOpFunBase<IWQ_SessionDataIOEx>> operation;
    ScriptedConnHandler handler;
};
} // namespace

TEST_F(ProxyPolicy, RunsTheOperationThroughTheRegisteredInvocation)
{
    Policy policy(&handler);
    RunOnTheRecordingIO(policy);
    EXPECT_EQ(S_OK, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(1u, io->CountCalls("DeleteKey(Key)"));
    EXPECT_TRUE(handler.seen.empty());  // success never consults the handler
    EXPECT_EQ(S_OK, policy.ConnectionStatus());
}

TEST_F(ProxyPolicy, WithoutInvocationReportsAndReturnsEFail)
{
    Policy policy(&handler);
    EXPECT_EQ(E_FAIL, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(L"proxy call invokation implementation not registered", TakeErrorInfo().description);
    EXPECT_EQ(1u, LogLinesWith("proxy call invokation implementation not registered"));
    EXPECT_EQ(1u, LogLinesWith("XComProxyPolicy::DoRemoteCall"));
}

TEST_F(ProxyPolicy, AfterALatchedFailureFurtherCallsFailFastWithoutInvoking)
{
    io->SetResult("DeleteKey", kServerUnavailable);
    Policy policy(&handler);
    RunOnTheRecordingIO(policy);

    EXPECT_EQ(ScriptedConnHandler::kLatchedFailure, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(ScriptedConnHandler::kLatchedFailure, policy.ConnectionStatus());
    EXPECT_EQ(1u, io->Calls().size());

    io->SetResult("DeleteKey", S_OK);  // even a call that would now succeed is not made
    EXPECT_EQ(ScriptedConnHandler::kLatchedFailure, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(ScriptedConnHandler::kLatchedFailure, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(1u, io->Calls().size());
    EXPECT_EQ(1u, handler.seen.size());
}

TEST_F(ProxyPolicy, FailureWithErrorInformationIsReportedButDoesNotLatch)
{
    int invocations = 0;
    Policy policy(&handler);
    policy.RegisterInvocation([&](XOpFunBase<IWQ_SessionDataIOEx>&) -> HRESULT {
        ++invocations;
        XSdmThrow(XSdmLocation("test", 1, XWQComBSTR(L"Test::Root")), kServerUnavailable, L"root went away");
    });
    EXPECT_EQ(kServerUnavailable, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(S_OK, policy.ConnectionStatus());
    EXPECT_EQ(L"root went away", TakeErrorInfo().description);
    EXPECT_EQ(1u, LogLinesWith("root went away"));

    EXPECT_EQ(kServerUnavailable, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(2, invocations);  // the next call was tried normally
}

TEST_F(ProxyPolicy, FailureWithoutConnectionHandlerNeverLatches)
{
    io->SetResult("DeleteKey", kServerUnavailable);
    Policy policy;
    RunOnTheRecordingIO(policy);
    EXPECT_EQ(kServerUnavailable, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(kServerUnavailable, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(2u, io->Calls().size());
    EXPECT_EQ(S_OK, policy.ConnectionStatus());
}

TEST_F(ProxyPolicy, HandlerAnsweringTrueRepeatsTheWholeCall)
{
    int invocations = 0;
    Policy policy(&handler);
    policy.RegisterInvocation([&](XOpFunBase<IWQ_SessionDataIOEx>&) -> HRESULT {
        return ++invocations == 1 ? E_ABORT : S_FALSE;
    });
    handler.repeatsLeft = 1;
    EXPECT_EQ(S_FALSE, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(2, invocations);
    ASSERT_EQ(1u, handler.seen.size());
    EXPECT_EQ(E_ABORT, handler.seen[0]);
}

TEST_F(ProxyPolicy, ContextReachesTheHandlerUnchanged)
{
    io->SetResult("DeleteKey", E_ACCESSDENIED);
    Policy policy(&handler);
    RunOnTheRecordingIO(policy);
    int context = 0;
    EXPECT_EQ(E_ACCESSDENIED, policy.DoRemoteCall(*operation, &context));
    ASSERT_EQ(1u, handler.contexts.size());
    EXPECT_EQ(&context, handler.contexts[0]);
    EXPECT_EQ(S_OK, policy.ConnectionStatus());
}

TEST_F(ProxyPolicy, WrappedExceptionBecomesItsResultBySetComError)
{
    Policy policy;
    policy.RegisterInvocation([](XOpFunBase<IWQ_SessionDataIOEx>&) -> HRESULT {
        XSdmThrow(XSdmLocation("test", 2, XWQComBSTR(L"Test::Root")), E_ACCESSDENIED, L"no access");
    });
    EXPECT_EQ(E_ACCESSDENIED, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(L"no access", TakeErrorInfo().description);
    EXPECT_EQ(1u, LogLinesWith("no access"));
}

TEST_F(ProxyPolicy, StandardExceptionBecomesItsResultWithSeverity8)
{
    Policy policy;
    policy.RegisterInvocation([](XOpFunBase<IWQ_SessionDataIOEx>&) -> HRESULT { throw std::bad_alloc(); });
    EXPECT_EQ(E_OUTOFMEMORY, policy.DoRemoteCall(*operation, nullptr));
    policy.RegisterInvocation([](XOpFunBase<IWQ_SessionDataIOEx>&) -> HRESULT {
        throw std::runtime_error("broken pipe");
    });
    EXPECT_EQ(E_FAIL, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(L"broken pipe", TakeErrorInfo().description);
    EXPECT_EQ(2u, LogLinesWith("sev=8\tWQSessionDataMng\tXComProxyPolicy::DoRemoteCall"));
}

TEST_F(ProxyPolicy, AnythingElseBecomesTheUnknownErrorResult)
{
    Policy policy;
    policy.RegisterInvocation([](XOpFunBase<IWQ_SessionDataIOEx>&) -> HRESULT { throw 42; });
    EXPECT_EQ(E_UNEXPECTED, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(L"unknown exception", TakeErrorInfo().description);
}

TEST_F(ProxyPolicy, NullTargetOfTheInvocationIsReportedAsEPointer)
{
    Policy policy(&handler);
    policy.RegisterInvocation(XSmartPtrFun<XComPtr<IWQ_SessionDataIOEx>>(XComPtr<IWQ_SessionDataIOEx>()));
    EXPECT_EQ(E_POINTER, policy.DoRemoteCall(*operation, nullptr));
    EXPECT_EQ(L"interface pointer is NULL", TakeErrorInfo().description);
}
