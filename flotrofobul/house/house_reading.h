// SPDX-License-Identifier: MIT
// What a packet of the protocol says, without a look at anything heard before. Internal.
#pragma once

#include <flotrofobul/house/house_model.h>

#include <QtCore/QJsonValue>
#include <QtCore/QStringView>

namespace comunication {
namespace house {

constexpr int longestId = 200;   // characters; longer ones are no node's
constexpr int longestText = 200; // characters of a value in a record

/// The parts of a topic of the protocol, without copies.
struct parts_t {
    way_t way = way_t::plain;
    QStringView installation;
    QStringView sender;
    QStringView destination;
    QStringView value;
};

/// False for a topic that is none of the protocol's.
bool split(const QString& topic, parts_t* parts);
/// Whether a destination stands for several nodes.
bool isWord(QStringView destination);
/// The text of a view as a key to look up; valid as long as the view is.
QString borrowed(QStringView view);

/// What the first level after the destination says of who speaks.
role_t roleOf(QStringView kind);
/// Whether a payload may be Base64.
bool looksEncoded(const QByteArray& payload);
/// What stands in a payload under "d", encoded or not.
QJsonValue valueIn(const QByteArray& payload);
/// What is kept of a presentation.
QJsonObject shortened(const QJsonObject& record);

} // namespace house
} // namespace comunication
