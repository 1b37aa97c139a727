#include "sysmanager/SysPowerC.h"

#include "app/Log.h"
#include "platform/Sync.h"

SysPowerC::SysPowerC()
{
    // Without the open descriptor the event still exists, only with the default access rules.
    auto security = platform::NullDaclSecurityC::create();
    m_hHalvernShutdownResponse = platform::createEvent(security.get(), true, false, L"Global\\HalvernShutdownResponse");
    if (!m_hHalvernShutdownResponse) WriteLog("[ERROR]: SysPowerC: m_hHalvernShutdownResponse NULL!\r\n");
}

SysPowerC::~SysPowerC()
{
    if (m_hHalvernShutdownResponse) platform::setEvent(m_hHalvernShutdownResponse.get());
}
