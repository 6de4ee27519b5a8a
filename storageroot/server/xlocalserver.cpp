#include "xlocalserver.h"

#include "xclassfactory.h"
#include "xcomobject.h"

#include <vector>

namespace
{
const DWORD kPollMilliseconds = 100;

// The registrations of the class objects, revoked when they end.
class Registrations
{
public:
    explicit Registrations(XClassObjects& objects) : m_objects(objects) {}
    ~Registrations()
    {
        for (DWORD cookie : m_cookies)
            ::CoRevokeClassObject(cookie);
    }
    Registrations(const Registrations&) = delete;
    Registrations& operator=(const Registrations&) = delete;

    HRESULT Register()
    {
        for (XClassFactory& factory : m_objects.Factories())
        {
            DWORD cookie = 0;
            const HRESULT hr = ::CoRegisterClassObject(*factory.Entry().clsid, static_cast<IClassFactory*>(&factory),
                                                       CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE | REGCLS_SUSPENDED,
                                                       &cookie);
            if (FAILED(hr))
                return hr;
            m_cookies.push_back(cookie);
        }
        return ::CoResumeClassObjects();
    }

private:
    XClassObjects& m_objects;
    std::vector<DWORD> m_cookies;
};

// Waits until the server has had no object and no lock for idleMilliseconds on end.
void WaitUntilIdle(DWORD idleMilliseconds)
{
    DWORD idleSince = ::GetTickCount();
    for (;;)
    {
        ::Sleep(kPollMilliseconds);
        const DWORD now = ::GetTickCount();
        if (XComModule::LockCount() != 0)
            idleSince = now;
        else if (now - idleSince >= idleMilliseconds)
            return;
    }
}
} // namespace

HRESULT XLocalServer::Serve(const XObjectMap& map, DWORD idleMilliseconds)
{
    XClassObjects objects(map);
    Registrations registrations(objects);
    const HRESULT registered = registrations.Register();
    if (FAILED(registered))
        return registered;
    for (;;)
    {
        WaitUntilIdle(idleMilliseconds);
        // No new activation once suspended; one that came in before is seen in the count.
        ::CoSuspendClassObjects();
        if (XComModule::LockCount() == 0)
            return S_OK;
        ::CoResumeClassObjects();
    }
}
