#include <orvane/Socket.h>
#include <orvane/TracerSink.h>

#include "log/Colour.h"
#include "log/LogLine.h"

namespace orvane {

UDPSink::UDPSink(const std::string& peer, unsigned short port) : className("UDPSink") {
    auto opened = std::make_unique<UdpSocket>();
    // A socket that cannot open is dropped: the sink then stays silent.
    if (opened->open("", 0)) {
        opened->setConnection(peer, port);
        socket = std::move(opened);
    }
    ORVANE_NOTE_IN("UDPSink", "UDP log on %s:%u", peer.c_str(), static_cast<unsigned>(port));
}

UDPSink::~UDPSink() = default;

void UDPSink::onLevelChanged(int newLevel) { level.store(newLevel); }

void UDPSink::sink(int lineLevel, const std::string& line) {
    if (!socket || lineLevel < 0) return;
    if (lineLevel > 4 && lineLevel > level.load()) return;
    std::string datagram = detail::colouredLine(lineLevel, line);
    socket->writeTrace(datagram.data(), static_cast<int>(datagram.size()));
}

}  // namespace orvane
