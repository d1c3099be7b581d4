// SPDX-License-Identifier: MIT
// Addresses of a name for a caller that waits. Internal.
#pragma once

#include <QtCore/QDeadlineTimer>
#include <QtCore/QStringList>

namespace comunication {
namespace mosquittopp {

/// Waits without running the event loop. Empty when the name does not resolve or the time is over.
QStringList resolveBefore(const QString& host, const QDeadlineTimer& deadline);

} // namespace mosquittopp
} // namespace comunication
