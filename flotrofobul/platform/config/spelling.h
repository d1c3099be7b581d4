// SPDX-License-Identifier: MIT
// Which known key somebody has probably meant. Internal.
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace comunication {
namespace config {

/// The known path ("mqtt.global.port") whose last piece is written most like that of the given path, the nearest of
/// equals first; empty when none is near: one slip in three letters, whatever the case.
QString probablyMeant(const QString& path, const QStringList& knownPaths);

} // namespace config
} // namespace comunication
