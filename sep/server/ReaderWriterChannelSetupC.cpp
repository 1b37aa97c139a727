#include "sep/server/ReaderWriterChannelSetupC.h"

#include <algorithm>
#include <chrono>

#include "app/Log.h"

namespace HalvernRpc {
namespace {

// How long a connection's thread waits for its client's next command before it gives the reads back to
// the I/O task: longer than a busy client's round trip, short enough that an idle one costs one wake-up.
constexpr std::uint32_t kReadOnMs = 20;

}  // namespace

ReaderWriterChannelSetupC::ReaderWriterChannelSetupC() : m_channel(m_router)
{
    m_router.setNodeId(NODE_ID);
    m_router.addCoder(m_binaryCoder);
    m_router.addCoder(m_asciiCoder);
    m_router.setDefaultChannel(m_channel);
}

ReaderWriterChannelSetupC::~ReaderWriterChannelSetupC()
{
    endCommands();
}

void ReaderWriterChannelSetupC::endCommands()
{
    std::map<int, std::shared_ptr<ConnectionT>> open;
    std::vector<std::shared_ptr<ConnectionT>> closed;
    {
        std::lock_guard<std::mutex> guard(m_connectionLock);
        open.swap(m_connections);
        closed.swap(m_closed);
    }
    for (auto& entry : open)
        entry.second->commands->close();
    for (auto& entry : closed)
        entry->commands->close();
    // The queues' destructors join their threads, outside the lock: a command's reply may look its
    // connection up meanwhile.
}

std::shared_ptr<ReaderWriterChannelSetupC::ConnectionT> ReaderWriterChannelSetupC::find(int connection)
{
    std::lock_guard<std::mutex> guard(m_connectionLock);
    auto found = m_connections.find(connection);
    return found == m_connections.end() ? nullptr : found->second;
}

void ReaderWriterChannelSetupC::reapClosed()
{
    std::vector<std::shared_ptr<ConnectionT>> ended;
    {
        std::lock_guard<std::mutex> guard(m_connectionLock);
        for (auto it = m_closed.begin(); it != m_closed.end();) {
            if ((*it)->commands->ended()) {
                ended.push_back(std::move(*it));
                it = m_closed.erase(it);
            } else {
                ++it;
            }
        }
    }
}

void ReaderWriterChannelSetupC::onClientConnected(int connection)
{
    reapClosed();
    auto entry = std::make_shared<ConnectionT>();
    entry->handler = std::make_shared<SEP::ConnectionHandlerC>(
        m_router, [this, connection](const std::uint8_t* data, std::size_t length) {
            return m_server != nullptr && m_server->writeData(connection, data, length);
        });
    // A command's replies wait for the client to take the ones before: a client that does not read holds
    // up only its own commands.
    entry->handler->setPace([this, connection] {
        if (m_server != nullptr) m_server->waitForRoom(connection);
    });
    SEP::ConnectionHandlerC* handler = entry->handler.get();
    entry->commands = std::make_unique<CommandQueueC>(
        [handler](const std::vector<std::uint8_t>& bytes) { handler->onBytesReceived(bytes.data(), bytes.size()); },
        [this, connection] {
            if (m_server != nullptr) m_server->resumeReceiving(connection);
        },
        &m_cancel, [handler] { handler->summarizeDrops(); },
        // Replies held back to leave with later ones go before a command starts a wait of its own.
        [handler] { handler->flush(true); },
        // A client that keeps sending is read by its own thread; one that pauses goes back to the I/O task.
        [this, connection](std::vector<std::uint8_t>& bytes) {
            return m_server != nullptr && m_server->receiveHeld(connection, bytes, kReadOnMs);
        });
    if (!entry->commands->start()) {
        WriteLog("[%s] [ERROR]: cannot start the command queue of connection %d",
                 "ReaderWriterChannelSetupC::onClientConnected", connection);
        return;
    }
    std::lock_guard<std::mutex> guard(m_connectionLock);
    m_connections[connection] = std::move(entry);
}

bool ReaderWriterChannelSetupC::onDataReceived(int connection, const std::uint8_t* data, std::size_t length)
{
    auto entry = find(connection);
    return !entry || entry->commands->push(data, length);
}

void ReaderWriterChannelSetupC::onClientClosed(int connection)
{
    std::shared_ptr<ConnectionT> entry;
    {
        std::lock_guard<std::mutex> guard(m_connectionLock);
        auto found = m_connections.find(connection);
        if (found == m_connections.end()) return;
        entry = found->second;
        m_connections.erase(found);
        m_closed.push_back(entry);
    }
    entry->commands->close();
    m_router.removeRoutesTo(*entry->handler);
    reapClosed();
}

bool ReaderWriterChannelSetupC::waitForCommands(std::uint32_t milliseconds)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    std::vector<std::shared_ptr<ConnectionT>> closed;
    {
        std::lock_guard<std::mutex> guard(m_connectionLock);
        closed = m_closed;
    }
    bool all = true;
    for (const auto& entry : closed) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        all = entry->commands->waitEnded(static_cast<std::uint32_t>(std::max<long long>(left.count(), 0))) && all;
    }
    if (all) reapClosed();
    return all;
}

bool ReaderWriterChannelSetupC::sendToAll(std::uint16_t messageId, std::uint32_t kind,
                                          const SEP::ReceivedCommandC::FieldsFn& fields)
{
    std::vector<std::shared_ptr<SEP::ConnectionHandlerC>> handlers;
    {
        std::lock_guard<std::mutex> guard(m_connectionLock);
        for (const auto& entry : m_connections)
            handlers.push_back(entry.second->handler);
    }
    bool all = true;
    for (const auto& handler : handlers)
        all = m_channel.sendMessage(*handler, messageId, kind, fields) && all;
    return all;
}

}  // namespace HalvernRpc
