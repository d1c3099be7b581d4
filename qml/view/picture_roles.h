// SPDX-License-Identifier: MIT
// What delegates can ask of each list; picture_rows.cpp fills them in this order.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QVector>

namespace comunication {
namespace view {

extern const QVector<QByteArray> brokerRoles;
extern const QVector<QByteArray> nodeRoles;
extern const QVector<QByteArray> lineRoles;
extern const QVector<QByteArray> eventRoles;
extern const QVector<QByteArray> packetRoles;

} // namespace view
} // namespace comunication
