// SPDX-License-Identifier: MIT
// Looks up the addresses of a name for a caller that waits. Internal.
#pragma once

#include <QtCore/QDeadlineTimer>
#include <QtCore/QStringList>

namespace comunication {
namespace mosquittopp {

/// Waits without running the event loop. Empty if the name does not resolve in time.
QStringList resolveBefore(const QString& host, const QDeadlineTimer& deadline);

} // namespace mosquittopp
} // namespace comunication
