// Fixture for manager tests: one manager object and helpers to bind recording IO objects.
#pragma once

#include "mallocspy.h"
#include "recordingio.h"
#include "testenv.h"
#include "xcomtypes.h"
#include "xsessiondatamng.h"

#include <gtest/gtest.h>

class ManagerTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    // Binds a new recording IO under key and returns it (the fixture keeps a reference).
    RecordingIO* Bind(LONG key, bool extended = false);
    static SESSIONDATATYPE Cat(LONG key) { return static_cast<SESSIONDATATYPE>(key); }

    XComPtr<IWQ_SessionDataMng> mng;
    std::vector<XComPtr<RecordingIO>> ios;
};

// A VARIANT holding a BSTR copy of text.
void SetBstr(XVariant& v, const wchar_t* text);
