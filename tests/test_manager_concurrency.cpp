// Several threads binding, rebinding, reading and calling the unlocked readers at once.
#include "managerfixture.h"

#include <atomic>
#include <functional>
#include <thread>

namespace
{
// A worker thread in the multithreaded apartment that runs its loop between go and stop and
// leaves the apartment only when released, so COM's own per-thread bookkeeping stays out of
// the leak count.
class Worker
{
public:
    Worker(std::function<void()> step, std::atomic<bool>& go, std::atomic<bool>& stop, std::atomic<bool>& release,
           std::atomic<int>& ready)
        : m_thread([=, &go, &stop, &release, &ready] {
              ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
              ++ready;
              while (!go)
                  ::Sleep(1);
              while (!stop)
                  step();
              while (!release)
                  ::Sleep(1);
              ::CoUninitialize();
          })
    {
    }
    void Join() { m_thread.join(); }

private:
    std::thread m_thread;
};
} // namespace

TEST_F(ManagerTest, ConcurrentRebindingAndUnlockedReadersAreSafe)
{
    std::atomic<bool> go{false}, stop{false}, release{false};
    std::atomic<int> ready{0};
    std::atomic<long> reads{0}, failures{0};
    auto bind = [&] {
        for (LONG key = 1; key <= 5; ++key)
        {
            RecordingIO* io = RecordingIO::Create();
            io->SetValue(L"k", L"v", L"x");
            if (mng->SetStorageIO(io, Cat(key)) != S_OK)
                ++failures;
            io->Release();
        }
    };
    auto read = [&] {
        for (LONG key = 1; key <= 5; ++key)
        {
            SDM_STORAGE_TYPE type;
            HRESULT async = S_OK;
            XVariant value;
            if (FAILED(mng->GetStorageType(Cat(key), &type)) || FAILED(mng->UploadCache(XWQComBSTR(L"k"), Cat(key))) ||
                FAILED(mng->GetLastErrorAsyncExecution(Cat(key), &async)) ||
                FAILED(mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"v"), VT_BSTR, &value, Cat(0))))
                ++failures;
            ++reads;
        }
    };
    auto validate = [&] {
        mng->SetInvalid();
        mng->Validate();
        ::Sleep(1);
    };
    // Make the process-wide function-name strings before counting.
    bind();
    read();
    validate();
    XSessionDataMng::Terminate();

    std::vector<std::unique_ptr<Worker>> workers;
    for (auto step : {std::function<void()>(bind), std::function<void()>(bind), std::function<void()>(read),
                      std::function<void()>(read), std::function<void()>(validate)})
        workers.push_back(std::make_unique<Worker>(step, go, stop, release, ready));
    while (ready < 5)
        ::Sleep(1);
    {
        ScopedMallocSpy spy;
        ASSERT_TRUE(spy.Registered());
        go = true;
        ::Sleep(2000);
        stop = true;
        ::Sleep(50);
        EXPECT_EQ(S_OK, XSessionDataMng::Terminate());
        EXPECT_EQ(0u, spy.Outstanding());
    }
    release = true;
    for (auto& worker : workers)
        worker->Join();
    EXPECT_EQ(0, failures.load());
    EXPECT_GT(reads.load(), 100);
}

namespace
{
// An IO whose GetData holds its caller (and so the manager's lock) until released.
class HoldingIO : public RecordingIO
{
public:
    HoldingIO() : entered(::CreateEventW(nullptr, TRUE, FALSE, nullptr)), released(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
    ~HoldingIO() override
    {
        ::CloseHandle(entered);
        ::CloseHandle(released);
    }
    STDMETHODIMP GetData(BSTR, BSTR, BSTR*) override
    {
        inside = true;
        ::SetEvent(entered);
        ::WaitForSingleObject(released, 10000);
        inside = false;
        return S_FALSE;
    }
    HANDLE entered;
    HANDLE released;
    std::atomic<bool> inside{false};
};
} // namespace

TEST_F(ManagerTest, StorageTypeAsyncErrorAndUploadAreAnsweredWhileAnotherCallHoldsTheManager)
{
    XComPtr<HoldingIO> io;
    io.Attach(new XComObject<HoldingIO>());
    io->AddRef();
    ASSERT_EQ(S_OK, mng->SetStorageIO(io.Get(), Cat(3)));
    std::thread holder([&] {
        ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        XVariant value;
        mng->GetData(XWQComBSTR(L"k"), XWQComBSTR(L"n"), VT_BSTR, &value, Cat(3));
        ::CoUninitialize();
    });
    ASSERT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(io->entered, 10000));

    SDM_STORAGE_TYPE type = static_cast<SDM_STORAGE_TYPE>(0);
    EXPECT_EQ(S_OK, mng->GetStorageType(Cat(3), &type));
    HRESULT async = E_FAIL;
    EXPECT_EQ(S_OK, mng->GetLastErrorAsyncExecution(Cat(3), &async));
    mng->UploadCache(XWQComBSTR(L"k"), Cat(3));
    // The holder is still inside its call: none of these waited for the manager's lock.
    EXPECT_TRUE(io->inside.load());

    ::SetEvent(io->released);
    holder.join();
}
