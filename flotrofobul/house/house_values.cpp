// SPDX-License-Identifier: MIT
// What the values of the model of a house say of themselves: rates, words.
#include <flotrofobul/house/house_model.h>

#include <flotrofobul/define/packet.h>

#include <algorithm>

namespace comunication {
namespace house {

namespace {

constexpr moment_t window{10000};

} // namespace

void rate_t::add(moment_t now)
{
    if (begin == never || now - begin >= 2 * window || now < begin) {
        begin = now;
        current = 0;
        last = 0;
    } else if (now - begin >= window) {
        begin += window;
        last = current;
        current = 0;
    }
    ++current;
}

double rate_t::perSecond(moment_t now) const
{
    if (begin == never || now - begin >= 2 * window) {
        return 0;
    }
    const double seconds = double(window.count()) / 1000;
    const double into = std::max(0.0, double((now - begin).count()) / 1000);
    if (into >= seconds) {
        return current * (2 * seconds - into) / seconds / seconds;
    }
    // The first window is short; afterwards the part of the last one that still counts is added.
    return last == 0 ? current / std::max(1.0, into) : (current + last * (seconds - into) / seconds) / seconds;
}

QStringList house_node_t::prefixes() const
{
    static const QString names[wayCount] = {FORWARD_PREFIX, REMOTE_PREFIX, CLOUD_PREFIX_1, QStringLiteral("plain")};
    QStringList result;
    for (int i = 0; i < wayCount; ++i) {
        if (packets[i] > 0) {
            result << names[i];
        }
    }
    return result;
}

QString wordOf(role_t role)
{
    return role == role_t::server   ? QStringLiteral("server")
           : role == role_t::client ? QStringLiteral("client")
                                    : QStringLiteral("?");
}

QString house_event_t::text() const
{
    switch (kind) {
    case came: return subject + (other.isEmpty() ? QStringLiteral(" is there") : " is there, master "_l1 + other);
    case gone: return subject + " has left, or its last will says so"_l1;
    case masterNow: return subject + " is master now"_l1;
    case masterNoMore: return subject + " is master no more"_l1;
    case twoMasters: return "more than one master: "_l1 + other;
    case oneMaster: return "one master again: "_l1 + other;
    case follows: return other.isEmpty() ? QString(subject + " follows nobody"_l1) : subject + " follows "_l1 + other;
    case readyNow: return subject + " is ready, it listens to "_l1 + other;
    case readyNoMore: return subject + " is not ready any more"_l1;
    case bridgeUp: return "bridge "_l1 + subject + " is up"_l1;
    case bridgeDown: return "bridge "_l1 + subject + " is down"_l1;
    case encoding: return subject + " has encoding on: its payloads are Base64, which engines do not decode"_l1;
    case incoherent: return "a presentation of "_l1 + subject + " that engines refuse: "_l1 + other;
    case crowded: return QStringLiteral("more nodes than are kept: the longest silent ones are forgotten");
    }
    return {};
}

} // namespace house
} // namespace comunication
