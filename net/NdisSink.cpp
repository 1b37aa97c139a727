#include "net/NdisSink.h"

#include <new>

#include "app/Log.h"

namespace halvern::net {

CNdisSink::CNdisSink(WlanDriverEventStateC& state) : m_state(state) {}

CNdisSink::~CNdisSink()
{
    stop();
}

bool CNdisSink::start()
{
    const platform::NdisSubscribeResultT result =
        m_source.start([this](const platform::NdisEventT& event) { onEvent(event); });
    const unsigned code = result.code;
    switch (result.failedStep) {
        case platform::NdisSubscribeStepE::CoInitializeEx:
            WriteLog("[ERROR]: CoInitializeEx() failed - returned 0x%x", code);
            return false;
        case platform::NdisSubscribeStepE::CoInitializeSecurity:
            WriteLog("[ERROR]: CoInitializeSecurity() failed - returned 0x%x", code);
            return false;
        case platform::NdisSubscribeStepE::CoCreateInstance:
            WriteLog("[ERROR]: CoCreateInstance() failed - returned 0x%x", code);
            return false;
        case platform::NdisSubscribeStepE::ConnectServer:
            WriteLog("[ERROR]: Could not connect to server - error 0x%x\n", code);
            return false;
        case platform::NdisSubscribeStepE::Register:
            WriteLog("Connected to ROOT\\WMI.");
            WriteLog("[ERROR]: Failed to register async notifications");
            return false;
        case platform::NdisSubscribeStepE::None:
            break;
    }
    WriteLog("Connected to ROOT\\WMI.");
    return true;
}

void CNdisSink::stop()
{
    m_source.stop();
}

void CNdisSink::onEvent(const platform::NdisEventT& event)
{
    // WMI's thread must get back without an exception, whatever the copy costs.
    try {
        switch (event.kind) {
            case platform::NdisEventKindE::MediaConnect:
                m_state.post(WlanDriverEventE::MediaConnect);
                return;
            case platform::NdisEventKindE::MediaDisconnect:
                m_state.post(WlanDriverEventE::MediaDisconnect);
                return;
            case platform::NdisEventKindE::MediaSpecificIndication:
                if (!event.hasIndication) {
                    WriteLog("[ERROR]: Could not get NdisStatusMediaSpecificIndication from the object?!");
                    return;
                }
                m_state.post(WlanDriverEventE::SpecificIndication, platform::decodeWlanIndication(event.indication));
                return;
            case platform::NdisEventKindE::Unexpected:
                WriteLogWindows("[ERROR]: Unepected event - __CLASS: '%S'\n", event.className.c_str());
                return;
        }
    } catch (const std::bad_alloc&) {
        WriteLog("[ERROR]: Failed to allocate buffer for event data");
    }
}

}  // namespace halvern::net
