// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/outbox.h>

#include <algorithm>
#include <iterator>

namespace comunication {
namespace mosquittopp {

namespace {

constexpr int highestMid = 65535;
constexpr int mostWaiting = limits::outboxMessages.highest;
// What may wait at a broker that is slower than its host.
constexpr qint64 mostBytesOverLink = 256 * 1024 * 1024;
// A broker that closes the connection over a message does so when it reads it, not minutes later.
constexpr std::chrono::seconds suspicionTime{5};
// Six times alone on a proven connection, or twelve times on one that may have been bad.
constexpr int mostGuilt = 12;
constexpr int guiltOnProven = 2;
// A network that cuts this many connections in this time, all before one acknowledgement has come, is no network.
constexpr int mostFruitless = 8;
constexpr std::chrono::minutes fruitlessTime{5};

} // namespace

void outbox_t::setLimits(int messages, int bytes)
{
    mostMessages = std::clamp(messages, 1, mostWaiting);
    mostBytes = std::max(bytes, 1);
}

// The loop ends: waiting messages, those on their way and pending subscriptions together take fewer ids than there are.
int outbox_t::nextMid()
{
    do {
        lastMid = lastMid == highestMid ? 1 : lastMid + 1;
    } while (!takenMids.insert(lastMid).second);
    return lastMid;
}

void outbox_t::dropOldest()
{
    waitingBytes -= waiting.front().bytes();
    takenMids.erase(waiting.front().mid);
    waiting.pop_front();
}

bool outbox_t::hasRoom(int bytes) const
{
    return waiting.empty() || (waitingCount() < mostWaiting && waitingBytes + bytes <= mostBytesOverLink);
}

int outbox_t::add(letter_t letter, bool linkUp)
{
    waitingBytes += letter.bytes();
    waiting.push_back(std::move(letter));
    if (linkUp) {
        return 0;
    }
    // What was not acknowledged when the link went down does not count against the limits for what is published
    // without one.
    const int most = std::min(mostMessages + keptFromBefore, mostWaiting);
    int dropped = 0;
    while (waitingCount() > most || (waitingBytes > mostBytes + bytesKeptFromBefore && waiting.size() > 1)) {
        dropOldest();
        ++dropped;
    }
    return dropped;
}

letter_t* outbox_t::takeNext(moment_t now)
{
    const int window = suspects > 0 ? 1 : widestWindow;
    if (waiting.empty() || onItsWayCount() >= window) {
        return nullptr;
    }
    waitingBytes -= waiting.front().bytes();
    sent.push_back(std::move(waiting.front()));
    waiting.pop_front();
    sent.back().sentAt = now;
    sent.back().onProven = proven;
    return &sent.back();
}

int outbox_t::qosOf(int wireMid) const
{
    const auto letter =
        std::find_if(sent.rbegin(), sent.rend(), [wireMid](const letter_t& one) { return one.wireMid == wireMid; });
    return letter == sent.rend() ? -1 : letter->qos;
}

int outbox_t::acknowledge(int wireMid)
{
    // The library reuses ids without checking what is outstanding: the newest owner is meant.
    const auto letter =
        std::find_if(sent.rbegin(), sent.rend(), [wireMid](const letter_t& one) { return one.wireMid == wireMid; });
    if (letter == sent.rend()) {
        return 0;
    }
    const int mid = letter->mid;
    takenMids.erase(mid);
    sent.erase(std::next(letter).base());
    suspects = std::max(suspects - 1, 0);
    noteAnswer();
    return mid;
}

bool outbox_t::withdraw(int mid)
{
    const auto isMeant = [mid](const letter_t& letter) { return letter.mid == mid; };
    if (const auto letter = std::find_if(sent.begin(), sent.end(), isMeant); letter != sent.end()) {
        takenMids.erase(mid);
        sent.erase(letter);
        return true;
    }
    if (const auto letter = std::find_if(waiting.begin(), waiting.end(), isMeant); letter != waiting.end()) {
        waitingBytes -= letter->bytes();
        takenMids.erase(mid);
        waiting.erase(letter);
    }
    return false;
}

void outbox_t::discardNewest()
{
    takenMids.erase(sent.back().mid);
    sent.pop_back();
}

int outbox_t::acknowledgeRequest(int wireMid)
{
    const auto request =
        std::find_if(requests.begin(), requests.end(), [wireMid](request_t one) { return one.wireMid == wireMid; });
    if (request == requests.end()) {
        return 0;
    }
    const int mid = request->mid;
    takenMids.erase(mid);
    requests.erase(request);
    noteAnswer();
    return mid;
}

void outbox_t::noteAnswer()
{
    proven = true;
    fruitless = 0;
}

void outbox_t::linkLost(bool resumable)
{
    proven = false;
    for (const request_t request : requests) {
        takenMids.erase(request.mid);
    }
    requests.clear();
    if (!resumable) {
        restart();
    }
    // The library forgets QoS 0.
    const auto isForgotten = [](const letter_t& letter) { return letter.qos == 0; };
    for (auto letter = sent.rbegin(); letter != sent.rend(); ++letter) {
        if (isForgotten(*letter)) {
            waitingBytes += letter->bytes();
            waiting.push_front(*letter);
        }
    }
    sent.erase(std::remove_if(sent.begin(), sent.end(), isForgotten), sent.end());
    keptFromBefore = waitingCount();
    bytesKeptFromBefore = std::min(waitingBytes, mostBytesOverLink);
}

void outbox_t::restart()
{
    for (auto letter = sent.rbegin(); letter != sent.rend(); ++letter) {
        letter->wireMid = 0;
        waitingBytes += letter->bytes();
        bytesKeptFromBefore += letter->bytes();
        ++keptFromBefore;
        waiting.push_front(std::move(*letter));
    }
    sent.clear();
}

outbox_t::suspicion_t outbox_t::suspect(moment_t now)
{
    suspicion_t suspicion;
    const auto isRecent = [now](const letter_t& letter) { return now - letter.sentAt <= suspicionTime; };
    suspects = static_cast<int>(std::count_if(sent.begin(), sent.end(), isRecent));
    suspicion.any = suspects > 0;
    if (!suspicion.any) {
        return suspicion;
    }
    if (!proven && fruitless++ == 0) {
        fruitlessSince = now;
    }
    if (sent.size() > 1) {
        suspicion.isStuck = fruitless >= mostFruitless && now - fruitlessSince >= fruitlessTime;
        return suspicion;
    }
    letter_t& only = sent.front();
    only.guilt += only.onProven ? guiltOnProven : 1;
    if (only.guilt >= mostGuilt) {
        takenMids.erase(only.mid);
        suspicion.forsaken = std::move(only);
        sent.clear();
        suspects = 0;
    }
    return suspicion;
}

void outbox_t::acquit()
{
    for (letter_t& letter : sent) {
        letter.guilt = 0;
    }
    if (!waiting.empty()) {
        waiting.front().guilt = 0;
    }
}

void outbox_t::sentAgain(moment_t now)
{
    for (letter_t& letter : sent) {
        letter.sentAt = now;
        letter.onProven = false;
    }
}

} // namespace mosquittopp
} // namespace comunication
