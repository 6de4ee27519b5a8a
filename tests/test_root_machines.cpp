// Two machines on one PostgreSQL database: two root servers, each in a Wine prefix and server
// session of its own, and a client on each. The client of machine A (the coordinator) runs a
// randomised sequence of writes, reads, lists and deletions of plain, per-user and object data;
// each operation goes through the server of the machine it is given to (machine B's client is an
// agent that runs what A sends over a loopback socket), and every read is checked against a
// model of what the last acknowledged write left: no read may be stale.
//
// Run by tests/host/root_machines.sh, which makes the two prefixes, registers the module and
// the server in each, starts the agent in B and then the coordinator in A. They find each other
// through a folder named by WQSDM_MACHINES_DIR.
#include "iotesthelpers.h"
#include "pgtesthelpers.h"
#include "rootservertest.h"
#include "storagetesthelpers.h"
#include "testenv.h"
#include "xcomtypes.h"

#include <gtest/gtest.h>
#include <winsock2.h>

#include <cstdio>
#include <map>
#include <random>
#include <tuple>

namespace
{
const wchar_t kFolderVariable[] = L"WQSDM_MACHINES_DIR";
const int kOperations = 10000;
const CLSID kObjectClass = {0x5a1e0c11, 0x7d2b, 0x4c3e, {0x9f, 0x10, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77}};

std::wstring Folder()
{
    wchar_t folder[MAX_PATH] = {};
    return ::GetEnvironmentVariableW(kFolderVariable, folder, MAX_PATH) ? folder : L"";
}

// An object known by its class id: the same identity on both machines.
class Persisted : public IPersist
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** ppv) override
    {
        *ppv = nullptr;
        if (!::IsEqualIID(iid, IID_IUnknown) && !::IsEqualIID(iid, IID_IPersist))
            return E_NOINTERFACE;
        *ppv = static_cast<IPersist*>(this);
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetClassID(CLSID* clsid) override
    {
        *clsid = kObjectClass;
        return S_OK;
    }
};

// Messages: a count of texts, then each text as its length and its UTF-16 characters.
using Message = std::vector<std::wstring>;

bool SendAll(SOCKET socket, const void* data, size_t size)
{
    const char* at = static_cast<const char*>(data);
    while (size > 0)
    {
        const int sent = ::send(socket, at, static_cast<int>(size), 0);
        if (sent <= 0)
            return false;
        at += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

bool ReceiveAll(SOCKET socket, void* data, size_t size)
{
    char* at = static_cast<char*>(data);
    while (size > 0)
    {
        const int got = ::recv(socket, at, static_cast<int>(size), 0);
        if (got <= 0)
            return false;
        at += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

// One send per message (with Nagle's algorithm off): a message in pieces would wait for the
// peer's delayed acknowledgement.
bool Send(SOCKET socket, const Message& message)
{
    std::string buffer;
    const auto append = [&buffer](const void* data, size_t size) {
        buffer.append(static_cast<const char*>(data), size);
    };
    const unsigned count = static_cast<unsigned>(message.size());
    append(&count, sizeof count);
    for (const std::wstring& text : message)
    {
        const unsigned length = static_cast<unsigned>(text.size());
        append(&length, sizeof length);
        append(text.data(), length * sizeof(wchar_t));
    }
    return SendAll(socket, buffer.data(), buffer.size());
}

void NoDelay(SOCKET socket)
{
    const BOOL on = TRUE;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
}

bool Receive(SOCKET socket, Message& message)
{
    unsigned count = 0;
    if (!ReceiveAll(socket, &count, sizeof count))
        return false;
    message.assign(count, std::wstring());
    for (std::wstring& text : message)
    {
        unsigned length = 0;
        if (!ReceiveAll(socket, &length, sizeof length))
            return false;
        text.resize(length);
        if (!ReceiveAll(socket, text.data(), length * sizeof(wchar_t)))
            return false;
    }
    return true;
}

std::wstring Hex(HRESULT hr)
{
    wchar_t text[16];
    std::swprintf(text, 16, L"%08lx", static_cast<unsigned long>(hr));
    return text;
}

// One machine's end: its root (on its own server) and what an operation does there.
//   {"write", scope, key, name, value}  -> {hr}
//   {"read", scope, key, name}          -> {hr, value}
//   {"list", scope, key}                -> {hr, name, value, name, value...}
//   {"delete", scope, key}              -> {hr}
// Scopes: "plain", "user" (the key below the user-profile prefix), "object".
class Machine
{
public:
    explicit Machine(XComPtr<IWQ_SessionDataIOEx> root) : m_root(std::move(root)) {}

    Message Run(const Message& op)
    {
        const std::wstring& kind = op.at(0);
        const std::wstring& scope = op.at(1);
        const XWQComBSTR key((scope == L"user" ? L"<[HKCU]>/" : L"") + op.at(2));
        IUnknown* object = &m_object;
        if (kind == L"write")
        {
            const XWQComBSTR name(op.at(3)), value(op.at(4));
            return {Hex(scope == L"object" ? m_root->WriteObjectData(object, key, name, value)
                                           : m_root->WriteData(key, name, value))};
        }
        if (kind == L"read")
        {
            BSTR value = nullptr;
            const XWQComBSTR name(op.at(3));
            const HRESULT hr = scope == L"object" ? m_root->GetObjectData(object, key, name, &value)
                                                  : m_root->GetData(key, name, &value);
            Message answer{Hex(hr), value ? std::wstring(value, ::SysStringLen(value)) : L""};
            ::SysFreeString(value);
            return answer;
        }
        if (kind == L"list")
        {
            XValueArray list;
            const HRESULT hr = scope == L"object"
                                   ? m_root->GetObjectStringList(object, key, list.CountAddress(), list.ItemsAddress())
                                   : m_root->GetStringList(key, list.CountAddress(), list.ItemsAddress());
            Message answer{Hex(hr)};
            for (ULONG i = 0; i < list.Count(); ++i)
            {
                answer.emplace_back(list[i].bstrValueName, ::SysStringLen(list[i].bstrValueName));
                answer.emplace_back(list[i].bstrValue, ::SysStringLen(list[i].bstrValue));
            }
            return answer;
        }
        if (kind == L"delete")
            return {Hex(scope == L"object" ? m_root->DeleteObjectKey(object, key) : m_root->DeleteKey(key))};
        return {L"unknown"};
    }

private:
    XComPtr<IWQ_SessionDataIOEx> m_root;
    Persisted m_object;
};

class Winsock
{
public:
    Winsock()
    {
        WSADATA data;
        ::WSAStartup(MAKEWORD(2, 2), &data);
    }
    ~Winsock() { ::WSACleanup(); }
};

// The model: per scope, key (as compared: lower-case) and name (object names lower-cased), the
// value that the last acknowledged write left.
using ModelKey = std::tuple<std::wstring, std::wstring, std::wstring>;

std::wstring Lower(std::wstring text)
{
    ::CharLowerBuffW(text.data(), static_cast<DWORD>(text.size()));
    return text;
}
} // namespace

TEST(RootMachines, ChildProcessAgent)
{
    const std::wstring folder = Folder();
    ASSERT_FALSE(folder.empty());
    Winsock winsock;
    int port = 0;
    for (int wait = 0; wait < 600 && port == 0; ++wait)
    {
        FILE* file = _wfopen((folder + L"\\port.txt").c_str(), L"r");
        if (!file || std::fscanf(file, "%d", &port) != 1)
        {
            port = 0;
            ::Sleep(100);
        }
        if (file)
            std::fclose(file);
    }
    ASSERT_NE(0, port);
    SOCKET socket = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<u_short>(port));
    ASSERT_EQ(0, ::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address));
    NoDelay(socket);
    Message open;
    ASSERT_TRUE(Receive(socket, open));
    HRESULT hr = E_FAIL;
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(open.at(0), &hr);
    Machine machine(root);
    ASSERT_TRUE(Send(socket, {Hex(hr), std::to_wstring(ServerProcessOf(root)), ProcessUserSid()}));
    ASSERT_TRUE(root);
    Message op;
    while (Receive(socket, op) && op.at(0) != L"quit")
        ASSERT_TRUE(Send(socket, machine.Run(op)));
    ::closesocket(socket);
}

TEST(RootMachines, TwoServersOnOneDatabaseNeverServeAStaleValue)
{
    const std::wstring folder = Folder();
    if (folder.empty())
        GTEST_SKIP() << "run by tests/host/root_machines.sh";
    PgTestSchema schema;
    Winsock winsock;
    SOCKET listener = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address));
    ASSERT_EQ(0, ::listen(listener, 1));
    int size = sizeof address;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    {
        FILE* file = _wfopen((folder + L"\\port.txt.tmp").c_str(), L"w");
        ASSERT_TRUE(file);
        std::fprintf(file, "%d\n", ntohs(address.sin_port));
        std::fclose(file);
        ::MoveFileExW((folder + L"\\port.txt.tmp").c_str(), (folder + L"\\port.txt").c_str(),
                      MOVEFILE_REPLACE_EXISTING);
    }
    const SOCKET agent = ::accept(listener, nullptr, nullptr);
    ASSERT_NE(INVALID_SOCKET, agent);
    NoDelay(agent);
    ::closesocket(listener);

    HRESULT hr = E_FAIL;
    const XComPtr<IWQ_SessionDataIOEx> root = ActivateRoot(schema.Connection(), &hr);
    ASSERT_TRUE(root) << std::hex << hr;
    Machine a(root);
    Message opened;
    ASSERT_TRUE(Send(agent, {schema.Connection()}) && Receive(agent, opened));
    ASSERT_EQ(Hex(S_OK), opened.at(0));
    // The same user on both machines: per-user data follows the user.
    EXPECT_EQ(ProcessUserSid(), opened.at(2));
    std::printf("machine A: server %lu; machine B: server %ls\n", ServerProcessOf(root), opened.at(1).c_str());

    std::mt19937 random(20261124);
    const auto pick = [&random](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    const wchar_t* scopes[] = {L"plain", L"user", L"object"};
    std::map<ModelKey, std::wstring> model;
    int reads = 0, stale = 0, failures = 0, crossReads = 0;
    int lastWriter = -1;
    for (int i = 0; i < kOperations; ++i)
    {
        const int on = pick(2);  // 0: machine A, 1: machine B
        const std::wstring scope = scopes[pick(3)];
        const std::wstring key = L"Suite/Machines/K" + std::to_wstring(pick(12));
        const std::wstring name = L"Name" + std::to_wstring(pick(4));
        const int roll = pick(100);
        Message op;
        if (roll < 45)
            op = {L"write", scope, key, name, L"v" + std::to_wstring(i) + (pick(10) == 0 ? L" \U0001F511" : L"")};
        else if (roll < 85)
            op = {L"read", scope, key, name};
        else if (roll < 97)
            op = {L"list", scope, key};
        else
            op = {L"delete", scope, key};
        Message answer;
        if (on == 0)
            answer = a.Run(op);
        else
            ASSERT_TRUE(Send(agent, op) && Receive(agent, answer)) << "the agent is gone at " << i;
        const bool ok = answer.at(0) == Hex(S_OK) || answer.at(0) == Hex(S_FALSE);
        failures += ok ? 0 : 1;
        EXPECT_TRUE(ok) << Utf8(op.at(0)) << " failed with " << Utf8(answer.at(0)) << " at " << i;
        const std::wstring keyNorm = Lower(key);
        // Names compare without regard to case in both the model and the layers.
        const ModelKey slot{scope, keyNorm, Lower(name)};
        if (op[0] == L"write" && answer[0] == Hex(S_OK))
        {
            model[slot] = op[4];
            lastWriter = on;
        }
        else if (op[0] == L"delete" && ok)
        {
            for (auto it = model.begin(); it != model.end();)
                it = std::get<0>(it->first) == scope && std::get<1>(it->first) == keyNorm ? model.erase(it) : ++it;
        }
        else if (op[0] == L"read")
        {
            ++reads;
            crossReads += lastWriter >= 0 && lastWriter != on ? 1 : 0;
            const auto found = model.find(slot);
            const std::wstring expected = found == model.end() ? L"" : found->second;
            const bool fresh = found == model.end() ? answer[0] == Hex(S_FALSE) : answer[1] == expected;
            stale += fresh ? 0 : 1;
            EXPECT_TRUE(fresh) << "read " << Utf8(scope) << " " << Utf8(key) << " " << Utf8(name) << " on "
                               << (on ? "B" : "A") << " at " << i << ": " << Utf8(answer[1]) << ", expected "
                               << Utf8(expected);
        }
        else if (op[0] == L"list" && ok)
        {
            ++reads;
            std::map<std::wstring, std::wstring> listed, expected;
            for (size_t j = 1; j + 1 < answer.size(); j += 2)
                listed[Lower(answer[j])] = answer[j + 1];
            for (const auto& [modelKey, value] : model)
                if (std::get<0>(modelKey) == scope && std::get<1>(modelKey) == keyNorm)
                    expected[std::get<2>(modelKey)] = value;
            stale += listed == expected ? 0 : 1;
            std::wstring shown;
            for (const auto& [n, v] : listed)
                shown += n + L"=" + v + L" ";
            shown += L"| expected ";
            for (const auto& [n, v] : expected)
                shown += n + L"=" + v + L" ";
            EXPECT_TRUE(listed == expected) << "list " << Utf8(scope) << " " << Utf8(key) << " on " << (on ? "B" : "A")
                                            << " at " << i << " (" << Utf8(answer[0]) << "): " << Utf8(shown);
        }
        if (::testing::Test::HasFatalFailure() || failures > 20)
            break;
    }
    Send(agent, {L"quit"});
    ::closesocket(agent);
    std::printf("%d operations, %d reads and lists (%d right after a write through the other machine), %d stale, "
                "%d failed\n",
                kOperations, reads, crossReads, stale, failures);
    EXPECT_EQ(0, stale);
    EXPECT_EQ(0, failures);
    EXPECT_GT(reads, kOperations / 3);
}
