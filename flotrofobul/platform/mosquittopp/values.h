// SPDX-License-Identifier: MIT
// What may be sent to a broker. libmosquitto lets values through that make a broker close the
// connection, or sends uninitialised memory for them, so they are looked at before. Internal.
#pragma once

#include <flotrofobul/platform/limits.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace comunication {
namespace mosquittopp {

/// A code of libmosquitto and, when it is not 0, why.
struct verdict_t {
    int code = 0;
    const char* why = "";
};

verdict_t checkTopic(const QByteArray& topic);
verdict_t checkFilter(const QByteArray& filter);
verdict_t checkQos(int qos);
/// Client id, user name, topic of any kind: text that the protocol limits to 65535 bytes of UTF-8
/// and that C strings must carry.
verdict_t checkText(const QByteArray& text);
/// As checkText without the rules for UTF-8.
verdict_t checkPassword(const QByteArray& password);

constexpr int longestText = 65535;
/// The longest payload of a publication beside its topic and header.
constexpr int longestPayload = limits::packetBytes.highest - longestText - 4;

} // namespace mosquittopp
} // namespace comunication
