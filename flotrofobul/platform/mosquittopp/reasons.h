// SPDX-License-Identifier: MIT
// Why a connection failed or ended, in words that help the person in front of the panel. Internal.
#pragma once

#include <flotrofobul/platform/mosquittopp/handle.h>

#include <QtCore/QString>

namespace comunication {
namespace mosquittopp {

/// How far a connection has come: TCP connects, the TLS handshake runs, the broker has yet to answer.
enum class stage_t { connecting, securing, greeting };

/// What is known of an attempt that failed at one address.
struct failure_t {
    stage_t stage = stage_t::connecting;
    outcome_t outcome;
    QString tlsReason;
    QByteArray libraryLine; ///< last complaint of libmosquitto
    bool tlsWanted = false;
};

/// The code of libmosquitto that stands for a failure: 8 TLS, 7 reset, 14 any other system error.
int codeOf(const failure_t& failure);
QString textOf(const failure_t& failure);
/// What a broker means that does not accept a client (CONNACK of MQTT 3.1.1).
QString refusalText(int answer);
/// Why a name could not be looked up.
QString lookupText(bool inTime);
/// Why an established connection has ended.
QString lossText(outcome_t outcome);

} // namespace mosquittopp
} // namespace comunication
