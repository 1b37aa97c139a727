#include "sep/ReceivedMessageC.h"

namespace SEP {

ReceivedCommandC::ReplyResultE ReceivedCommandC::reply(const FieldsFn& fields)
{
    // An addressed command is answered from where it was sent to, back to where it came from. The channel's
    // own address is not used: the default channel has none.
    const bool addressed = source().isValid() && destination().isValid();
    const AddressC from = addressed ? destination() : AddressC();
    const AddressC to = addressed ? source() : AddressC();
    const auto result = m_connection.writeMessage(messageId(), MESSAGE_KIND_REPLY, from, to, fields);
    if (result == ConnectionHandlerC::WriteResultE::Refused) return ReplyResultE::NotEncoded;
    if (result == ConnectionHandlerC::WriteResultE::NotSent) return ReplyResultE::NotSent;
    m_connection.paceReplies();
    return ReplyResultE::Sent;
}

}  // namespace SEP
