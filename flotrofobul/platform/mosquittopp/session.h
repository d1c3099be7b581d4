// SPDX-License-Identifier: MIT
// What the broker and this client remember of each other from one connection to the next. Internal.
#pragma once

#include <flotrofobul/platform/mosquittopp/handle.h>
#include <flotrofobul/platform/mosquittopp/inbound.h>

namespace comunication {
namespace mosquittopp {

/// Decides with which handle a connection is made and whether the broker's answer to it can be used.
///
/// A clean session has a new handle for each connection: an old one would send the second half of a QoS 2 message that
/// the broker has forgotten, and take it for delivered. A session that is kept goes on with the handle of its last
/// connection, which knows what was half sent and half received. Where that is gone (a new process, a message taken
/// back on its way) what the broker still holds cannot be completed: it would discard as many new messages without a
/// word. Such a session is ended by a clean one before a new one begins.
class session_t {
public:
    explicit session_t(bool givenClean) : clean(givenClean) {}

    /// The handle for the next connection; null if libmosquitto does not accept the client id.
    std::unique_ptr<handle_t> takeHandle(const identity_t& identity, handle_listener_t* listener);
    /// Whether the handle that was taken last goes on with a session.
    bool isResuming() const { return resuming; }
    /// Takes back the handle of an attempt that failed or of a connection that has ended.
    void giveBack(std::unique_ptr<handle_t> handle);

    /// The broker has accepted a connection. False if it is to be ended at once, and another one to be made.
    bool begins(bool sessionPresent);
    /// The handle must not go on: it would repeat something that is not wanted any more.
    void forget();
    /// Whether the handle will go on with what is on its way.
    bool isResumable() const { return mayResume; }
    /// Replaces the handle, but not the session at the broker; right when nothing is on its way.
    void renewHandle();

    bool isClean() const { return clean; }
    inbound_t inbound;

private:
    /// What the broker holds for this client id. ending: it is told to forget it.
    enum class broker_t { unknown, ending, nothing, ours };

    bool isUsable(const identity_t& identity) const;

    const bool clean;
    bool resuming = false;
    bool mayResume = false;
    broker_t broker = broker_t::unknown;
    QString clientId;
    std::unique_ptr<handle_t> kept;
};

} // namespace mosquittopp
} // namespace comunication
