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

/// A value as QML gives it, without QML's own type around an object: values of that can be compared.
[[nodiscard]] QVariant plain(const QVariant& value);

/// Reads the plain value of a property "configuration" of an item. A relative file is looked for beside the QML
/// document, then in the working directory.
[[nodiscard]] configuration_t readConfiguration(const QVariant& given, const QObject* item);

} // namespace qml
} // namespace comunication
