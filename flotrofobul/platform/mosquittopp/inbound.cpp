// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/inbound.h>

#include <QtCore/QString>

#include <cstdio>
#include <cstring>

namespace comunication {
namespace mosquittopp {

void inbound_t::begin(const QString& clientId)
{
    prefix = "Client " + clientId.toUtf8() + " received PUB";
    messages.clear();
    waiting = 0;
    leftovers = 0;
}

inbound_t::finding_t inbound_t::note(const char* line)
{
    if (std::strncmp(line, prefix.constData(), static_cast<std::size_t>(prefix.size())) != 0) {
        return finding_t::none;
    }
    const char* const packet = line + prefix.size();
    int mid = 0;
    if (std::sscanf(packet, "REL (Mid: %d)", &mid) == 1) {
        return released(mid);
    }
    return std::sscanf(packet, "LISH (d%*d, q2, r%*d, m%d,", &mid) == 1 ? begun(mid) : finding_t::none;
}

inbound_t::finding_t inbound_t::begun(int mid)
{
    ++waiting;
    return ++messages[mid].waiting > 1 ? finding_t::repeat : finding_t::none;
}

inbound_t::finding_t inbound_t::released(int mid)
{
    const auto message = messages.find(mid);
    if (message == messages.end()) {
        return finding_t::none; // released before, and the broker has not heard so
    }
    copies_t& copies = message->second;
    if (copies.left > 0) {
        --copies.left;
        --leftovers;
        return finding_t::stale;
    }
    waiting -= copies.waiting;
    copies = {0, copies.waiting - 1};
    leftovers += copies.left;
    if (copies.left <= 0) {
        messages.erase(message);
    }
    return finding_t::none;
}

} // namespace mosquittopp
} // namespace comunication
