// SPDX-License-Identifier: MIT
// How an established link is judged: whether the broker is still there.
#include <flotrofobul/platform/mosquittopp/link.h>

#include <algorithm>

namespace comunication {
namespace mosquittopp {

namespace {

constexpr milliseconds_t shortestHousekeeping{500};
// More bytes than any packet has that is not reported: the rest of a long one is under way.
constexpr std::uint64_t longPacket = 1000;

} // namespace

milliseconds_t link_t::housekeepingInterval() const
{
    const milliseconds_t longest =
        target.keepalive == seconds_t::zero() ? limits::interval.highest : milliseconds_t(target.keepalive) / 4;
    return std::clamp(interval, shortestHousekeeping, longest);
}

// Judges the link by the keep-alive, but first reads what came while the host was busy. While a long packet moves the
// link is alive, although the library sees no whole one.
void link_t::keepHouse()
{
    const bool mayRead = delivery.pendingBytes() <= mostPending;
    if (mayRead && !read()) {
        return;
    }
    pump();
    if (!isConnected()) {
        return;
    }
    const tcp::traffic_t traffic = tcp::traffic(handle->socket());
    const bool sends = isSending(traffic);
    const bool receives = mayRead ? isReceiving(traffic) : tcp::hasInput(handle->socket());
    lastTraffic = traffic;
    if (sends || receives) {
        lastMove.start();
    }
    // A packet that moves may rest for a while, too.
    const int patience = milliseconds_t(target.keepalive).count() / 2;
    if (receives) {
        giveSignOfLife();
    } else if (!lastMove.isValid() || lastMove.hasExpired(patience)) {
        settle(handle->checkKeepalive());
    }
}

bool link_t::isSending(const tcp::traffic_t& traffic) const
{
    const bool hasLongPacket = handle->wantsWrite() || traffic.queued > static_cast<int>(longPacket);
    return hasLongPacket && traffic.acknowledged != lastTraffic.acknowledged;
}

bool link_t::isReceiving(const tcp::traffic_t& traffic)
{
    if (packetSeen) {
        packetSeen = false;
        receivedAtPacket = traffic.received;
    }
    return traffic.received != lastTraffic.received && traffic.received - receivedAtPacket > longPacket;
}

// The answer to a PINGREQ would come behind the packet that is under way, too late for the library, and the broker
// wants to hear something, too. It answers that nobody is subscribed to this, and that is all.
void link_t::giveSignOfLife()
{
    if (target.keepalive != seconds_t::zero() &&
        (!signOfLife.isValid() || signOfLife.hasExpired(milliseconds_t(target.keepalive).count() / 2))) {
        signOfLife.start();
        int wireMid = 0;
        settle(handle->unsubscribe(&wireMid, QByteArrayLiteral("still/receiving")));
    }
}

} // namespace mosquittopp
} // namespace comunication
