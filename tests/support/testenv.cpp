#include "testenv.h"

#include <cstdio>
#include <fstream>

namespace
{
std::wstring g_logPath;
}

std::wstring TestLogBookPath()
{
    return g_logPath;
}

std::vector<std::string> ReadLogBook()
{
    std::vector<std::string> lines;
    HANDLE file = ::CreateFileW(g_logPath.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return lines;
    std::string content;
    char buffer[4096];
    DWORD got = 0;
    while (::ReadFile(file, buffer, sizeof buffer, &got, nullptr) && got)
        content.append(buffer, got);
    ::CloseHandle(file);
    size_t start = 0;
    while (start < content.size())
    {
        size_t end = content.find("\r\n", start);
        if (end == std::string::npos)
            end = content.size();
        lines.push_back(content.substr(start, end - start));
        start = end + 2;
    }
    return lines;
}

void ClearLogBook()
{
    ::DeleteFileW(g_logPath.c_str());
    ::DeleteFileW((g_logPath + L".1").c_str());
}

ErrorInfoText TakeErrorInfo()
{
    ErrorInfoText out;
    IErrorInfo* info = nullptr;
    if (::GetErrorInfo(0, &info) != S_OK || !info)
        return out;
    out.present = true;
    BSTR text = nullptr;
    if (SUCCEEDED(info->GetDescription(&text)) && text)
        out.description = text;
    ::SysFreeString(text);
    text = nullptr;
    if (SUCCEEDED(info->GetSource(&text)) && text)
        out.source = text;
    ::SysFreeString(text);
    info->GetGUID(&out.guid);
    info->Release();
    return out;
}

void SetMarkerErrorInfo(const wchar_t* description)
{
    ICreateErrorInfo* create = nullptr;
    if (FAILED(::CreateErrorInfo(&create)))
        return;
    create->SetDescription(const_cast<LPOLESTR>(description));
    create->SetSource(const_cast<LPOLESTR>(L"marker"));
    IErrorInfo* info = nullptr;
    create->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info));
    ::SetErrorInfo(0, info);
    info->Release();
    create->Release();
}

std::wstring Widen(const std::string& text)
{
    return std::wstring(text.begin(), text.end());
}

void InitTestProcess()
{
    wchar_t folder[MAX_PATH];
    ::GetTempPathW(MAX_PATH, folder);
    wchar_t name[MAX_PATH + 64];
    std::swprintf(name, MAX_PATH + 64, L"%lswqsdm-test-%lu.log", folder, ::GetCurrentProcessId());
    g_logPath = name;
    ::SetEnvironmentVariableW(L"WQSDM_LOGBOOK", g_logPath.c_str());
    ClearLogBook();
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
}

void EndTestProcess()
{
    ::CoUninitialize();
    ClearLogBook();
}
