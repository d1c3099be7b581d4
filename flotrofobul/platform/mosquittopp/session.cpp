// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/session.h>

namespace comunication {
namespace mosquittopp {

bool session_t::isUsable(const identity_t& identity) const
{
    return kept && mayResume && kept->clientId() == identity.clientId && kept->isSecure() == identity.tls.wanted;
}

std::unique_ptr<handle_t> session_t::takeHandle(const identity_t& identity, handle_listener_t* listener)
{
    resuming = isUsable(identity);
    if (resuming) {
        return std::move(kept);
    }
    kept.reset();
    if (mayResume || clientId != identity.clientId) {
        broker = broker_t::unknown;
    }
    mayResume = false;
    clientId = identity.clientId;
    inbound.begin(clientId, broker == broker_t::ours);
    return handle_t::create(clientId, clean || broker == broker_t::ending, listener);
}

void session_t::giveBack(std::unique_ptr<handle_t> handle)
{
    if (mayResume) {
        handle->cut();
        kept = std::move(handle);
    }
}

bool session_t::begins(bool sessionPresent)
{
    if (clean) {
        return true;
    }
    if (broker == broker_t::ending) {
        broker = broker_t::nothing;
        return false;
    }
    if (resuming && !mayResume) { // forgotten since the handle was taken
        broker = sessionPresent ? broker_t::ending : broker_t::nothing;
        return false;
    }
    // At this point the library resumes half-finished QoS 2 exchanges. A broker that has forgotten the first half
    // confirms the second without having the message, and a new message is taken for the rest of one that was half
    // received. A DISCONNECT sent now prevents both.
    if (resuming && !sessionPresent) {
        broker = broker_t::nothing;
        mayResume = false;
        return false;
    }
    if (!resuming && sessionPresent && broker == broker_t::unknown) {
        broker = broker_t::ending;
        return false;
    }
    broker = broker_t::ours;
    mayResume = true;
    return true;
}

void session_t::forget()
{
    mayResume = false;
    broker = broker_t::unknown;
}

void session_t::renewHandle()
{
    mayResume = false; // and the broker holds ours
}

} // namespace mosquittopp
} // namespace comunication
