// Interface call functors: the right slot with the held arguments, deep copies, the checks.
#include "WQComProxy.h"
#include "mallocspy.h"
#include "recordingio.h"
#include "testenv.h"
#include "threadingdoubles.h"
#include "wqcomfunctor.h"
#include "xcomtypes.h"

#include <gtest/gtest.h>

using namespace WQComFunctor;

namespace
{
using DeleteKeyFun = XFunP1<IWQ_SessionDataIOEx, &IWQ_SessionDataIOEx::DeleteKey, BSTR>;
using WriteStringListFun =
    XFunP3<IWQ_SessionDataIOEx, &IWQ_SessionDataIO::WriteStringList, BSTR, ULONG, tagSESSIONDATAVALUE*>;

// A caller's value list, allocated as a caller of WriteStringList would.
tagSESSIONDATAVALUE* CallerList(std::initializer_list<std::pair<const wchar_t*, const wchar_t*>> pairs)
{
    auto* list = static_cast<tagSESSIONDATAVALUE*>(::CoTaskMemAlloc(sizeof(tagSESSIONDATAVALUE) * pairs.size()));
    size_t i = 0;
    for (const auto& pair : pairs)
    {
        list[i].bstrValueName = ::SysAllocString(pair.first);
        list[i].bstrValue = ::SysAllocString(pair.second);
        ++i;
    }
    return list;
}

// Overwrites and frees a caller's list, so that a functor still using it would see other texts.
void ScrapCallerList(tagSESSIONDATAVALUE* list, ULONG count)
{
    for (ULONG i = 0; i < count; ++i)
    {
        for (BSTR text : {list[i].bstrValueName, list[i].bstrValue})
            for (UINT c = 0; c < ::SysStringLen(text); ++c)
                text[c] = L'#';
    }
    XFreeValueArray(list, count);
}

void ScrapCallerString(BSTR text)
{
    for (UINT c = 0; c < ::SysStringLen(text); ++c)
        text[c] = L'#';
    ::SysFreeString(text);
}

struct FirstBase
{
    virtual ~FirstBase() = default;
    virtual HRESULT STDMETHODCALLTYPE First() { return S_OK; }
};
struct SecondBase
{
    virtual ~SecondBase() = default;
    virtual HRESULT STDMETHODCALLTYPE Touch(ULONG* count)
    {
        ++*count;
        return S_OK;
    }
};
struct Joined : FirstBase, SecondBase
{
};
// Touch of SecondBase as a method of Joined: the call would need the object pointer adjusted.
constexpr HRESULT (STDMETHODCALLTYPE Joined::*kTouchOfJoined)(ULONG*) = &SecondBase::Touch;

// Reaches the call of a functor directly, with any method pointer.
struct JoinedCallProbe : XComFunImpl<Joined>
{
    using XComFunImpl<Joined>::funCallImpl;
};
} // namespace

TEST(WQComFunctor, P1CallsDeleteKeyWithItsHeldKey)
{
    XComPtr<RecordingIO> io;
    io.Attach(RecordingIO::Create(true));
    auto operation = MakeOpFun(DeleteKeyFun(XWQComBSTR(L"Users/alice/Settings")));
    IWQ_SessionDataIOEx* target = io.Get();
    EXPECT_EQ(S_OK, (*operation)(&target));
    ASSERT_EQ(1u, io->Calls().size());
    EXPECT_EQ("DeleteKey(Users/alice/Settings)", io->Calls()[0]);
}

TEST(WQComFunctor, P3CallsWriteStringListWithItsHeldArguments)
{
    XComPtr<RecordingIO> io;
    io.Attach(RecordingIO::Create(true));
    tagSESSIONDATAVALUE* list = CallerList({{L"Width", L"640"}, {L"Height", L"480"}});
    auto operation = MakeOpFun(WriteStringListFun(XWQComBSTR(L"Window"), 2, list));
    XFreeValueArray(list, 2);
    IWQ_SessionDataIOEx* target = io.Get();
    EXPECT_EQ(S_OK, (*operation)(&target));
    ASSERT_EQ(1u, io->Calls().size());
    EXPECT_EQ("WriteStringList(Window,2,Width=640;Height=480)", io->Calls()[0]);
}

TEST(WQComFunctor, FunctorsCallLaterWithTheirOwnCopiesOfTheCallersMemory)
{
    XComPtr<RecordingIO> io;
    io.Attach(RecordingIO::Create(true));
    BSTR key = ::SysAllocString(L"Printers");
    tagSESSIONDATAVALUE* list = CallerList({{L"Default", L"Laser"}});
    auto write = MakeOpFun(WriteStringListFun(key, 1, list));
    auto erase = MakeOpFun(DeleteKeyFun(key));
    ScrapCallerList(list, 1);
    ScrapCallerString(key);

    IWQ_SessionDataIOEx* target = io.Get();
    EXPECT_EQ(S_OK, (*write)(&target));
    EXPECT_EQ(S_OK, (*erase)(&target));
    ASSERT_EQ(2u, io->Calls().size());
    EXPECT_EQ("WriteStringList(Printers,1,Default=Laser)", io->Calls()[0]);
    EXPECT_EQ("DeleteKey(Printers)", io->Calls()[1]);
}

TEST(WQComFunctor, HeldStringsKeepLengthEmbeddedNullsAndNull)
{
    const wchar_t text[] = {L'a', L'\0', L'b'};
    BSTR source = ::SysAllocStringLen(text, 3);
    XHeldBstr held(source);
    ::SysFreeString(source);
    ASSERT_EQ(3u, ::SysStringLen(held.Get()));
    EXPECT_EQ(0, std::memcmp(text, held.Get(), sizeof text));

    XHeldBstr nullHeld(nullptr);
    EXPECT_EQ(nullptr, nullHeld.Get());
    BSTR emptySource = ::SysAllocString(L"");
    XHeldBstr empty(emptySource);
    ::SysFreeString(emptySource);
    ASSERT_NE(nullptr, empty.Get());
    EXPECT_EQ(0u, ::SysStringLen(empty.Get()));
}

TEST(WQComFunctor, FunctorsLeakNothing)
{
    XComPtr<RecordingIO> io;
    io.Attach(RecordingIO::Create(true));
    ScopedMallocSpy spy;
    ASSERT_TRUE(spy.Registered());
    {
        BSTR key = ::SysAllocString(L"Session");
        tagSESSIONDATAVALUE* list = CallerList({{L"A", L"1"}, {L"B", L"2"}, {L"C", L"3"}});
        auto write = MakeOpFun(WriteStringListFun(key, 3, list));
        auto erase = MakeOpFun(DeleteKeyFun(key));
        XFreeValueArray(list, 3);
        ::SysFreeString(key);
        EXPECT_GT(spy.Outstanding(), 0u);  // the functors' own copies
        IWQ_SessionDataIOEx* target = io.Get();
        EXPECT_EQ(S_OK, (*write)(&target));
        EXPECT_EQ(S_OK, (*erase)(&target));
    }
    EXPECT_EQ(0u, spy.Outstanding());
}

TEST(WQComFunctor, NullListStaysNull)
{
    XComPtr<RecordingIO> io;
    io.Attach(RecordingIO::Create(true));
    auto operation = MakeOpFun(WriteStringListFun(XWQComBSTR(L"Empty"), 0, nullptr));
    IWQ_SessionDataIOEx* target = io.Get();
    EXPECT_EQ(S_OK, (*operation)(&target));
    EXPECT_EQ("WriteStringList(Empty,0,)", io->Calls().at(0));
}

TEST(WQComFunctor, TheCallsResultPassesThrough)
{
    XComPtr<RecordingIO> io;
    io.Attach(RecordingIO::Create(true));
    io->SetResult("DeleteKey", E_ACCESSDENIED);
    auto operation = MakeOpFun(DeleteKeyFun(XWQComBSTR(L"Locked")));
    IWQ_SessionDataIOEx* target = io.Get();
    EXPECT_EQ(E_ACCESSDENIED, (*operation)(&target));
}

TEST(WQComFunctor, CallWithoutInterfaceIsReportedByThePointerCheck)
{
    auto operation = MakeOpFun(DeleteKeyFun(XWQComBSTR(L"Key")));
    IWQ_SessionDataIOEx* target = nullptr;
    try
    {
        (*operation)(&target);
        FAIL() << "a call without interface ran";
    }
    catch (const XWrappedWQException& report)
    {
        EXPECT_EQ(E_POINTER, report.Result());
        EXPECT_EQ(L"interface pointer is NULL", report->Message().ToWString());
    }
    EXPECT_THROW((*operation)(nullptr), XWrappedWQException);
}

TEST(WQComFunctor, MethodNeedingAnObjectAdjustmentIsReportedAsInvalidCallHandler)
{
    EXPECT_EQ(0u, XSecondHandlerWord(&IWQ_SessionDataIO::WriteStringList));
    EXPECT_EQ(0u, XSecondHandlerWord(&IWQ_SessionDataIOEx::DeleteKey));
    EXPECT_NE(0u, XSecondHandlerWord(kTouchOfJoined));

    Joined object;
    ULONG touched = 0;

    XFunP1<SecondBase, &SecondBase::Touch, ULONG*> plain(&touched);
    SecondBase* second = &object;
    plain.SetInterface(&second);
    EXPECT_EQ(S_OK, plain());
    EXPECT_EQ(1u, touched);

    // A method pointer converted to a derived class: the check of the call refuses it.
    XComInterfaceRefWrapper<Joined>::XComRefI target;
    target.Set(&object);
    try
    {
        JoinedCallProbe::funCallImpl(target, XSecondHandlerWord(kTouchOfJoined), kTouchOfJoined, &touched);
        FAIL() << "the call ran";
    }
    catch (const XWrappedWQException& report)
    {
        EXPECT_EQ(L"call handler is not valid", report->Message().ToWString());
        EXPECT_EQ(L"XComFunImpl::funCallImpl", report->Location().Function().ToWString());
    }
    EXPECT_EQ(1u, touched);
}

TEST(WQComFunctor, SmartPtrFunRunsTheOperationOnItsTarget)
{
    XComPtr<RecordingIO> io;
    io.Attach(RecordingIO::Create(true));
    XComPtr<IWQ_SessionDataIOEx> root(io.Get());
    XSmartPtrFun<XComPtr<IWQ_SessionDataIOEx>> invoke(root);
    auto operation = MakeOpFun(DeleteKeyFun(XWQComBSTR(L"Old")));
    EXPECT_EQ(S_OK, invoke(*operation));
    EXPECT_EQ("DeleteKey(Old)", io->Calls().at(0));
}

TEST(WQComFunctor, SmartPtrFunReportsANullTarget)
{
    XSmartPtrFun<XComPtr<IWQ_SessionDataIOEx>> invoke{XComPtr<IWQ_SessionDataIOEx>()};
    auto operation = MakeOpFun(DeleteKeyFun(XWQComBSTR(L"Old")));
    try
    {
        invoke(*operation);
        FAIL() << "ran without target";
    }
    catch (const XWrappedWQException& report)
    {
        EXPECT_EQ(E_POINTER, report.Result());
        EXPECT_EQ(L"XSmartPtrFun::operator()", report->Location().Function().ToWString());
    }
}
