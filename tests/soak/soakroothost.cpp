#include "soakroothost.h"

#include "XWQComBSTR.h"
#include "xctlsession.h"
#include "xstorageroot_h.h"

#include <cstdio>
#include <string>
#include <vector>

namespace
{
const wchar_t kRootProgId[] = L"WQSessionDataMng.WQ_SessionDataStorageRoot";

std::string Hex(const BYTE* bytes, size_t size)
{
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < size; ++i)
    {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
    }
    return text;
}

std::vector<BYTE> Bytes(const std::string& hex)
{
    std::vector<BYTE> bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<BYTE>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

// One line from a pipe (without its end); empty when the pipe ended first.
std::string ReadLine(HANDLE pipe)
{
    std::string line;
    char c = 0;
    DWORD read = 0;
    while (::ReadFile(pipe, &c, 1, &read, nullptr) && read == 1 && c != '\n')
        line += c;
    return line;
}

// A stream holding the bytes, positioned at their start.
XComPtr<IStream> StreamOf(const std::vector<BYTE>& bytes)
{
    XComPtr<IStream> stream;
    if (FAILED(::CreateStreamOnHGlobal(nullptr, TRUE, stream.ReleaseAndGetAddressOf())))
        return stream;
    ULONG written = 0;
    stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
    LARGE_INTEGER start = {};
    stream->Seek(start, STREAM_SEEK_SET, nullptr);
    return stream;
}
} // namespace

SoakRootHost::~SoakRootHost()
{
    Kill();
}

bool SoakRootHost::Kill()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_process || ::WaitForSingleObject(m_process.Get(), 0) == WAIT_OBJECT_0)
        return false;
    ::TerminateProcess(m_process.Get(), 9);
    ::WaitForSingleObject(m_process.Get(), 10000);
    return true;
}

bool SoakRootHost::Ended(DWORD milliseconds) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_process || ::WaitForSingleObject(m_process.Get(), milliseconds) == WAIT_OBJECT_0;
}

int SoakRootHost::Starts() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_starts;
}

XComPtr<IWQ_SessionDataIOEx> SoakRootHost::Root(HRESULT& hr)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    XComPtr<IWQ_SessionDataIOEx> root;
    // A host still running hands out its reference again (it was marshalled for any number of
    // unmarshals).
    if (!m_process || ::WaitForSingleObject(m_process.Get(), 0) == WAIT_OBJECT_0)
    {
        m_input.Reset();
        m_process.Reset();
        m_reference = Start(hr);
        if (m_reference.empty())
            return root;
    }
    const XComPtr<IStream> stream = StreamOf(Bytes(m_reference));
    hr = stream ? ::CoUnmarshalInterface(stream.Get(), __uuidof(IWQ_SessionDataIOEx),
                                         reinterpret_cast<void**>(root.ReleaseAndGetAddressOf()))
                : E_OUTOFMEMORY;
    return root;
}

std::string SoakRootHost::Start(HRESULT& hr)
{
    SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
    HANDLE ends[4] = {};  // the child's input and ours, our output end and the child's
    if (!::CreatePipe(&ends[0], &ends[1], &inherit, 0) || !::CreatePipe(&ends[2], &ends[3], &inherit, 0))
    {
        hr = HRESULT_FROM_WIN32(::GetLastError());
        for (HANDLE end : ends)
            XHandle closed(end);
        return std::string();
    }
    XHandle childInput(ends[0]), output(ends[2]), childOutput(ends[3]);
    m_input.Reset(ends[1]);
    ::SetHandleInformation(m_input.Get(), HANDLE_FLAG_INHERIT, 0);
    ::SetHandleInformation(output.Get(), HANDLE_FLAG_INHERIT, 0);

    wchar_t self[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, self, MAX_PATH);
    std::wstring command = L"\"" + std::wstring(self) + L"\" --root-host \"" + m_connection + L"\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = childInput.Get();
    startup.hStdOutput = childOutput.Get();
    startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION process = {};
    if (!::CreateProcessW(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process))
    {
        hr = HRESULT_FROM_WIN32(::GetLastError());
        return std::string();
    }
    ::CloseHandle(process.hThread);
    m_process.Reset(process.hProcess);
    ++m_starts;
    // The host's line: the reference, or nothing when it could not make one (it says why on its
    // standard error).
    childOutput.Reset();  // the pipe ends when the child's end is its own alone
    const std::string line = ReadLine(output.Get());
    hr = line.empty() ? E_FAIL : S_OK;
    return line;
}

int SoakRootHost::HostMain(const std::wstring& connection)
{
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    int result = 0;
    try
    {
        const XComPtr<IWQ_SessionDataIOEx> root = XCtlCreate<IWQ_SessionDataIOEx>(kRootProgId);
        XComPtr<IWQ_SessionDataRootConfig> config;
        XCtlCheck(root.As(config), "the storage root has no configuration interface");
        XCtlCheck(config->Open(XWQComBSTR(connection.c_str())), "the storage root cannot open its connection");
        XComPtr<IStream> stream;
        XCtlCheck(::CreateStreamOnHGlobal(nullptr, TRUE, stream.ReleaseAndGetAddressOf()), "no stream");
        XCtlCheck(::CoMarshalInterface(stream.Get(), __uuidof(IWQ_SessionDataIOEx), root.Get(), MSHCTX_LOCAL, nullptr,
                                       MSHLFLAGS_TABLESTRONG),
                  "the root cannot be marshalled");
        ULARGE_INTEGER size = {};
        LARGE_INTEGER zero = {};
        stream->Seek(zero, STREAM_SEEK_CUR, &size);
        HGLOBAL memory = nullptr;
        XCtlCheck(::GetHGlobalFromStream(stream.Get(), &memory), "no memory of the stream");
        const std::string line = Hex(static_cast<const BYTE*>(::GlobalLock(memory)), size.QuadPart) + "\n";
        ::GlobalUnlock(memory);
        std::fwrite(line.data(), 1, line.size(), stdout);
        std::fflush(stdout);
        // Serve until the soak closes our input (or ends, or kills us).
        char c = 0;
        DWORD read = 0;
        while (::ReadFile(::GetStdHandle(STD_INPUT_HANDLE), &c, 1, &read, nullptr) && read == 1)
        {
        }
    }
    catch (const XCtlFailure& failure)
    {
        std::fprintf(stderr, "root host: %s\n", failure.what());
        result = 3;
    }
    ::CoUninitialize();
    return result;
}
