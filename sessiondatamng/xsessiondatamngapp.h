// The module's application object: starts the session data manager's core when the module is
// loaded and refuses the load if it cannot.
#pragma once

#include <windows.h>

class XSessionDataMngApp
{
public:
    // Records the module handle and creates the core. False refuses the load, after reporting
    // "Initialization failed!" (0x8004080D).
    bool InitInstance(HINSTANCE instance);
    HINSTANCE Instance() const { return m_instance; }

private:
    HINSTANCE m_instance = nullptr;
};

// The one application object of the module.
XSessionDataMngApp& XTheApp();
