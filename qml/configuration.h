// SPDX-License-Identifier: MIT
// A configuration as QML names it: a file or an object.
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QVariant>

class QObject;

namespace comunication {
namespace qml {

struct configuration_t {
    QJsonObject json;
    QString problem; ///< what is wrong with it, in words; empty: nothing
};

/// Reads the value of a property "configuration" of an item. A relative file is looked for beside the QML document,
/// then in the working directory.
[[nodiscard]] configuration_t readConfiguration(const QVariant& value, const QObject* item);

} // namespace qml
} // namespace comunication
