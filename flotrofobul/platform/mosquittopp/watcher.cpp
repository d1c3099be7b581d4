// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/watcher.h>

#include <flotrofobul/platform/mosquittopp/handle.h>

namespace comunication {
namespace mosquittopp {

watcher_t::watcher_t(const handle_t& givenHandle, listener_t* givenListener, QObject* parent)
    : QObject(parent), handle(givenHandle), listener(givenListener),
      reader(givenHandle.socket(), QSocketNotifier::Read, this),
      writer(givenHandle.socket(), QSocketNotifier::Write, this)
{
    reader.setEnabled(false);
    writer.setEnabled(false);
    QObject::connect(&reader, &QSocketNotifier::activated, this, [this] { this->listener->readable(*this); });
    QObject::connect(&writer, &QSocketNotifier::activated, this, [this] { this->listener->writable(*this); });
}

// A notifier that is left on wakes the loop without end.
void watcher_t::update(bool wantsRead, bool wantsWrite)
{
    reader.setEnabled(wantsRead);
    writer.setEnabled(wantsWrite);
    if (!wantsRead || !handle.hasBufferedInput()) {
        buffered.stop();
    } else if (!buffered.isActive()) {
        buffered.start(0, this);
    }
}

void watcher_t::timerEvent(QTimerEvent* /*event*/)
{
    buffered.stop(); // a slot may run an event loop of its own, in which only a new timer fires
    listener->readable(*this);
}

} // namespace mosquittopp
} // namespace comunication
