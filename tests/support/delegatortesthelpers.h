// Helpers of the asynchronous delegator tests: captured root calls as the database storage
// pipes them, and the failure a delegator operation throws.
#pragma once

#include "fakestorageroot.h"
#include "xasyncstoragedelegator.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace DelegatorTest
{
using WriteFun = WQComFunctor::XFunP3<IWQ_SessionDataIOEx, &IWQ_SessionDataIOEx::WriteStringList, BSTR, ULONG,
                                      tagSESSIONDATAVALUE*>;
using DeleteFun = WQComFunctor::XFunP1<IWQ_SessionDataIOEx, &IWQ_SessionDataIOEx::DeleteKey, BSTR>;

// A captured WriteStringList of one value.
std::unique_ptr<XAsyncStorageDelegator::Operation> Write(const std::wstring& key, const std::wstring& name,
                                                          const std::wstring& value);
// A captured DeleteKey.
std::unique_ptr<XAsyncStorageDelegator::Operation> Delete(const std::wstring& key);

// Pipes the write under its key (flags 1).
void PipeWrite(XAsyncStorageDelegator& delegator, const std::wstring& key, const std::wstring& name,
               const std::wstring& value);
void PipeDelete(XAsyncStorageDelegator& delegator, const std::wstring& key);

// What the operation threw: HRESULT and message; hr S_OK when it threw nothing.
struct Failure
{
    HRESULT hr = S_OK;
    std::wstring message;
};
Failure FailureOf(const std::function<void()>& operation);

// The delegator's retained error.
HRESULT Retained(XAsyncStorageDelegator& delegator);

// A delegator with a running worker (interval 120 s) over a free-threaded fake root that lives
// in the multithreaded apartment, as the test's own thread does: the worker calls it directly.
class MtaDelegatorTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;
    // Runs calls through until the wake-ups of the set-up are used up; forgets the calls.
    void Settle();

    XComPtr<FakeStorageRoot> root;
    std::unique_ptr<XAsyncStorageDelegator> delegator;
};
} // namespace DelegatorTest
