// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/inbound.h>

#include <QtCore/QString>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace comunication {
namespace mosquittopp {

void inbound_t::begin(const QString& clientId, bool goesOn)
{
    prefix = "Client " + clientId.toUtf8() + " received PUB";
    messages.clear();
    waiting = 0;
    leftovers = 0;
    if (!goesOn) {
        passed.clear();
    }
}

inbound_t::finding_t inbound_t::note(const char* line)
{
    if (std::strncmp(line, prefix.constData(), static_cast<std::size_t>(prefix.size())) != 0) {
        return finding_t::none;
    }
    const char* const packet = line + prefix.size();
    int mid = 0;
    int again = 0;
    if (std::sscanf(packet, "REL (Mid: %d)", &mid) == 1) {
        return released(mid);
    }
    return std::sscanf(packet, "LISH (d%d, q2, r%*d, m%d,", &again, &mid) == 2 ? begun(mid, again != 0)
                                                                               : finding_t::none;
}

inbound_t::finding_t inbound_t::begun(int mid, bool again)
{
    copies_t& copies = messages[mid];
    copies.again = again && (copies.waiting == 0 || copies.again);
    ++waiting;
    if (++copies.waiting == 1) {
        copies.number = ++begunCount;
        return finding_t::none;
    }
    const bool isOldest = std::none_of(messages.begin(), messages.end(), [&copies](const auto& one) {
        return one.second.waiting > 0 && one.second.number < copies.number;
    });
    return isOldest ? finding_t::repeat : finding_t::none;
}

inbound_t::finding_t inbound_t::released(int mid)
{
    const auto message = messages.find(mid);
    if (message == messages.end()) {
        return finding_t::none; // released before, and the broker has not heard so
    }
    copies_t& copies = message->second;
    passesLeftover = copies.left > 0;
    if (passesLeftover) {
        const bool isStale = copies.waiting > 0;
        --leftovers;
        if (--copies.left == 0 && !isStale) {
            messages.erase(message);
        }
        return isStale ? finding_t::stale : finding_t::none;
    }
    lastAgain = copies.again;
    waiting -= copies.waiting;
    copies = {0, copies.waiting - 1};
    leftovers += copies.left;
    if (copies.left <= 0) {
        messages.erase(message);
    }
    return finding_t::none;
}

// What is left over was passed on before. So was the same message under the same packet id that is marked as a repeat.
bool inbound_t::isNew(int mid, uint content)
{
    if (passesLeftover) {
        return false;
    }
    const auto former = std::find_if(passed.begin(), passed.end(), [mid](passed_t one) { return one.mid == mid; });
    if (former != passed.end()) {
        if (lastAgain && former->content == content) {
            return false;
        }
        passed.erase(former);
    }
    passed.push_back({mid, content});
    if (passed.size() > mostPassed) {
        passed.pop_front();
    }
    return true;
}

} // namespace mosquittopp
} // namespace comunication
