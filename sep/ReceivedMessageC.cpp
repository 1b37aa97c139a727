#include "sep/ReceivedMessageC.h"

namespace SEP {

bool ReceivedCommandC::sendReply(const FieldsFn& fields)
{
    auto writer = m_connection.makeCoder();
    const bool addressed = source().isValid();
    const AddressC from = addressed ? m_channelSource : AddressC();
    const AddressC to = addressed ? source() : AddressC();
    if (!writer->beginMessage(messageId(), MESSAGE_KIND_REPLY, from, to)) return false;
    if (fields && !fields(*writer)) {
        writer->endMessage();
        return false;
    }
    if (!writer->endMessage()) return false;
    return m_connection.flush();
}

}  // namespace SEP
