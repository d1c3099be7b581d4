// SPDX-License-Identifier: MIT
// Watches the socket of a handle on the event loop. Internal.
#pragma once

#include <QtCore/QBasicTimer>
#include <QtCore/QObject>
#include <QtCore/QSocketNotifier>

namespace comunication {
namespace mosquittopp {

class handle_t;

/// Tells a listener when its socket can be read or written, as often as it is so. It watches nothing until update().
class watcher_t : public QObject {
public:
    /// What is called may delete the watcher.
    class listener_t {
    public:
        virtual void readable(watcher_t& watcher) = 0;
        virtual void writable(watcher_t& watcher) = 0;

    protected:
        ~listener_t() = default;
    };

    watcher_t(const handle_t& handle, listener_t* listener, QObject* parent);

    /// Watches for what is wanted now. Bytes that OpenSSL has taken from the socket already count as readable.
    void update(bool wantsRead, bool wantsWrite);

private:
    void timerEvent(QTimerEvent* event) override;

    const handle_t& handle;
    listener_t* const listener;
    QSocketNotifier reader;
    QSocketNotifier writer;
    QBasicTimer buffered;
};

} // namespace mosquittopp
} // namespace comunication
