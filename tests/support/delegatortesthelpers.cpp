#include "delegatortesthelpers.h"

#include "XWQComBSTR.h"
#include "XWQException.h"
#include "testenv.h"

namespace DelegatorTest
{
std::unique_ptr<XAsyncStorageDelegator::Operation> Write(const std::wstring& key, const std::wstring& name,
                                                          const std::wstring& value)
{
    XWQComBSTR keyText(key.c_str()), nameText(name.c_str()), valueText(value.c_str());
    tagSESSIONDATAVALUE record{nameText, valueText};
    return WQComFunctor::MakeOpFun(WriteFun(keyText, 1, &record));
}

std::unique_ptr<XAsyncStorageDelegator::Operation> Delete(const std::wstring& key)
{
    XWQComBSTR keyText(key.c_str());
    return WQComFunctor::MakeOpFun(DeleteFun(keyText));
}

void PipeWrite(XAsyncStorageDelegator& delegator, const std::wstring& key, const std::wstring& name,
               const std::wstring& value)
{
    XWQComBSTR keyText(key.c_str());
    delegator.PipeStorageRootCall(Write(key, name, value), keyText, 1);
}

void PipeDelete(XAsyncStorageDelegator& delegator, const std::wstring& key)
{
    XWQComBSTR keyText(key.c_str());
    delegator.PipeStorageRootCall(Delete(key), keyText, 2);
}

Failure FailureOf(const std::function<void()>& operation)
{
    Failure failure;
    try
    {
        operation();
    }
    catch (const XWrappedWQException& exception)
    {
        failure.hr = exception.Result();
        failure.message = exception->Message().ToWString();
    }
    return failure;
}

HRESULT Retained(XAsyncStorageDelegator& delegator)
{
    HRESULT hr = E_UNEXPECTED;
    delegator.GetLastErrorAsyncExecution(&hr);
    return hr;
}
void MtaDelegatorTest::SetUp()
{
    ClearLogBook();
    root.Attach(FakeStorageRoot::Create());
    delegator = std::make_unique<XAsyncStorageDelegator>();
    delegator->SetStorageRoot(root.Get());
    delegator->SetWriteInterval(120);
    Settle();
}

void MtaDelegatorTest::TearDown()
{
    delegator.reset();
}

void MtaDelegatorTest::Settle()
{
    for (int i = 0; i < 2; ++i)
    {
        PipeWrite(*delegator, L"settle", L"n", std::to_wstring(i));
        delegator->FlushStorageCallPipe();
    }
    root->ClearCalls();
}
} // namespace DelegatorTest
