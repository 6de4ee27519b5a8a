// Shared helpers of the tests: the per-process log book, COM error info and small value builders.
#pragma once

#include "XWQComBSTR.h"
#include "xcomobject.h"
#include "xsessiondatamng_h.h"

#include <string>
#include <vector>

// The log book file of this test process (set through WQSDM_LOGBOOK by the test main).
std::wstring TestLogBookPath();
std::vector<std::string> ReadLogBook();
void ClearLogBook();

struct ErrorInfoText
{
    bool present = false;
    std::wstring description;
    std::wstring source;
    GUID guid = GUID_NULL;
};
// Takes the calling thread's error info (GetErrorInfo clears it).
ErrorInfoText TakeErrorInfo();
// Sets a recognisable error info on the calling thread.
void SetMarkerErrorInfo(const wchar_t* description);

std::wstring Widen(const std::string& text);

// Runs the initialisation of the test main: COM in the multithreaded apartment, a private log book.
void InitTestProcess();
void EndTestProcess();
