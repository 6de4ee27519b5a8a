// A single-threaded apartment that waits with the message-pumping wait keeps serving COM calls.
#include "XThreadSync.h"
#include "XThreadedTask.h"
#include "threadingdoubles.h"

#include <gtest/gtest.h>
#include <thread>

TEST(MessagePumpingWait, SingleThreadedApartmentWaitingOnATaskKeepsServingComCalls)
{
    HRESULT callResult = E_FAIL;
    DWORD staThread = 0;
    DWORD servedOn = 0;
    bool callReturnedDuringWait = false;
    bool setupOk = false;

    std::thread sta([&] {
        if (FAILED(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)))
            return;
        staThread = ::GetCurrentThreadId();
        {
            XComPtr<ThreadRecordingDispatch> object;
            object.Attach(ThreadRecordingDispatch::Create());
            XComPtr<IGlobalInterfaceTable> git;
            DWORD cookie = 0;
            if (SUCCEEDED(::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                                             IID_IGlobalInterfaceTable,
                                             reinterpret_cast<void**>(git.ReleaseAndGetAddressOf()))) &&
                SUCCEEDED(git->RegisterInterfaceInGlobal(static_cast<IDispatch*>(object.Get()), IID_IDispatch, &cookie)))
            {
                setupOk = true;
                XHandle called;
                XThreadSync::CreateEvent(called, false);

                // The task runs in the multithreaded apartment and calls the object through the
                // global interface table: the call is carried to this thread by a window message.
                ScriptedTask<> task(-1, [&](TaskOwner*, ScriptedTask<>&) -> unsigned long {
                    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
                    {
                        XComPtr<IDispatch> proxy;
                        HRESULT hr = git->GetInterfaceFromGlobal(cookie, IID_IDispatch,
                                                                  reinterpret_cast<void**>(proxy.ReleaseAndGetAddressOf()));
                        if (SUCCEEDED(hr))
                        {
                            UINT count = 99;
                            hr = proxy->GetTypeInfoCount(&count);
                        }
                        callResult = hr;
                    }
                    ::SetEvent(called.Get());
                    ::CoUninitialize();
                    return 0;
                });
                TaskOwner owner;
                task.Start(&owner);
                callReturnedDuringWait = XThreadSync::WaitForEvent(called.Get(), 10000);
                task.Stop();
                git->RevokeInterfaceFromGlobal(cookie);
                servedOn = object->lastCallerThread;
            }
        }
        ::CoUninitialize();
    });
    sta.join();

    ASSERT_TRUE(setupOk);
    EXPECT_TRUE(callReturnedDuringWait);
    EXPECT_EQ(S_OK, callResult);
    EXPECT_EQ(staThread, servedOn);
}
