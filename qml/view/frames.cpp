// SPDX-License-Identifier: MIT
#include "frames.h"

#include "command.h"

#include <QtQuick/QQuickWindow>

#include <algorithm>

namespace comunication {
namespace view {

frames_t::frames_t(QQuickWindow* window) : QObject(window)
{
    connect(window, &QQuickWindow::frameSwapped, this, &frames_t::add, Qt::DirectConnection);
    connect(&second, &QTimer::timeout, this, &frames_t::say);
    second.start(1000);
}

void frames_t::add()
{
    const QMutexLocker lock(&mutex);
    ++count;
    if (sinceFrame.isValid()) {
        longest = std::max(longest, sinceFrame.nsecsElapsed());
    }
    sinceFrame.start();
}

void frames_t::say()
{
    const QMutexLocker lock(&mutex);
    tools::complain(QStringLiteral("%1 frames, longest gap %2 ms").arg(count).arg(double(longest) / 1e6, 0, 'f', 1));
    count = 0;
    longest = 0;
}

} // namespace view
} // namespace comunication
