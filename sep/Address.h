#pragma once
// SEP addresses and message kinds, shared by the coders, the router and the channels.
#include <cstdint>

namespace SEP {

constexpr std::uint8_t INVALID_NODE_ID = 255;
constexpr std::uint8_t INVALID_CHANNEL_ID = 255;

enum MessageKind : std::uint32_t { MESSAGE_KIND_COMMAND = 1, MESSAGE_KIND_EVENT = 2, MESSAGE_KIND_REPLY = 3 };

class AddressC {
public:
    AddressC() = default;
    AddressC(std::uint8_t nodeId, std::uint8_t channelId) : m_valid(true), m_nodeId(nodeId), m_channelId(channelId) {}

    bool isValid() const { return m_valid; }
    std::uint8_t getNodeId() const { return m_nodeId; }
    std::uint8_t getChannelId() const { return m_channelId; }
    void set(std::uint8_t nodeId, std::uint8_t channelId)
    {
        m_valid = true;
        m_nodeId = nodeId;
        m_channelId = channelId;
    }
    void reset() { *this = AddressC(); }
    bool operator==(const AddressC& other) const
    {
        return m_valid == other.m_valid && m_nodeId == other.m_nodeId && m_channelId == other.m_channelId;
    }

private:
    bool m_valid = false;
    std::uint8_t m_nodeId = INVALID_NODE_ID;
    std::uint8_t m_channelId = INVALID_CHANNEL_ID;
};

}  // namespace SEP
