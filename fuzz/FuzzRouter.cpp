// The router behind a connection on arbitrary byte streams: a node with a registered channel, a default
// channel that answers every command, and a route to another node.
#include "fuzz/FuzzTarget.h"
#include "sep/AsciiCoderC.h"
#include "sep/BinaryCoderC.h"
#include "sep/RouterC.h"
#include "sep/RoutingChannelC.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    halvern::fuzz::quietFramework();
    SEP::RouterC router;
    router.setNodeId(1);
    SEP::BinaryCoderC binary;
    SEP::AsciiCoderC ascii;
    router.addCoder(binary);
    router.addCoder(ascii);
    SEP::RoutingChannelC fallback(router);
    SEP::RoutingChannelC channel(router, 2, SEP::AddressC(3, 4));
    router.setDefaultChannel(fallback);
    router.registerChannel(channel);
    const auto answer = [](SEP::ReceivedCommandC& command) {
        std::string text;
        command.reader().readString(text);
        command.sendReply([&](SEP::DataWriterI& w) { return w.writeI32(1097) && w.writeString(text.c_str()); });
    };
    fallback.setDefaultCallback(answer);
    channel.setDefaultCallback(answer);
    std::size_t sent = 0;
    const auto count = [&sent](const std::uint8_t*, std::size_t length) {
        sent += length;
        return true;
    };
    SEP::ConnectionHandlerC client(router, count);
    SEP::ConnectionHandlerC other(router, count);
    router.addRoute(3, other);

    std::size_t position = 0;
    while (position < size) {
        const std::size_t length = std::min<std::size_t>(1 + data[position] % 128, size - position);
        client.onBytesReceived(data + position, length);
        position += length;
    }
    return 0;
}
