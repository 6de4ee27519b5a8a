// The real storage root in another process, which the soak kills and starts again.
// The host is this executable started with --root-host: it creates the root class of the
// registered in-process server in its multithreaded apartment, opens the connection, writes the
// root's marshalled reference to its standard output as one line of hex and serves until its
// standard input ends (when the soak ends) or it is killed.
// Why not the local server by class activation: under Wine 8, once a local server was killed, the
// activation service keeps answering with the dead server's class object, and every later
// activation of the class in that Wine session fails with 0x800706BA (a server started by hand
// afterwards does not help). A marshalled reference needs no activation.
#pragma once

#include "XThreadSync.h"
#include "xcomobject.h"
#include "xsessiondatamng_h.h"

#include <windows.h>

#include <mutex>
#include <string>

class SoakRootHost
{
public:
    explicit SoakRootHost(std::wstring connection) : m_connection(std::move(connection)) {}
    ~SoakRootHost();
    SoakRootHost(const SoakRootHost&) = delete;
    SoakRootHost& operator=(const SoakRootHost&) = delete;

    // The root of the running host, a proxy in the calling apartment; a new host is started when
    // none runs (or the last one was killed). Null, with hr, when none could be started or its
    // reference cannot be unmarshalled.
    XComPtr<IWQ_SessionDataIOEx> Root(HRESULT& hr);
    // Ends the host at once (TerminateProcess); false when none ran.
    bool Kill();
    // Whether the host that served the last Root() has ended, waiting up to milliseconds.
    bool Ended(DWORD milliseconds) const;
    int Starts() const;

    // The host's side (--root-host CONNECTION): the process's exit code.
    static int HostMain(const std::wstring& connection);

private:
    // A new host; its marshalled reference (hex), empty when it could not make one.
    std::string Start(HRESULT& hr);

    std::wstring m_connection;
    mutable std::mutex m_mutex;
    XHandle m_process;
    XHandle m_input;  // the write end of the host's standard input
    int m_starts = 0;
    std::string m_reference;
};
