// SPDX-License-Identifier: MIT
// How smoothly a window is drawn, for those who tune a machine.
#pragma once

#include <QtCore/QElapsedTimer>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QTimer>

class QQuickWindow;

namespace comunication {
namespace view {

/// Says each second, on standard error, how many frames were shown and the longest time between two.
class frames_t : public QObject {
public:
    explicit frames_t(QQuickWindow* window);

private:
    void add();
    void say();

    QMutex mutex; ///< frames are shown from the thread that draws
    QElapsedTimer sinceFrame;
    qint64 longest = 0; ///< nanoseconds
    int count = 0;
    QTimer second;
};

} // namespace view
} // namespace comunication
