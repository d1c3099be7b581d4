// SPDX-License-Identifier: MIT
// How the kit waits: what comes early, late, in a wait within a wait, from another thread, or never.
#include "support/log_recorder.h"

#include <flotrofobul/testkit/waiting.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QPointer>
#include <QtCore/QThread>
#include <QtTest/QtTest>

using comunication::testkit::awaited_t;
using comunication::testkit::patience;
using comunication::testkit::until;

namespace {

using namespace std::chrono_literals;

/// A bell that is listened to, and what was heard.
struct bell_t {
    void ring() { object->setObjectName(QString::number(++rings)); }
    /// In a slot, when the event loop runs.
    template <class Act>
    static void soon(Act act)
    {
        QTimer::singleShot(0, qApp, act);
    }
    void listen(std::chrono::milliseconds bound = patience) { note(awaited.comes(bound), "yes", "no"); }
    void note(bool which, const char* one, const char* other) { answers << QLatin1String(which ? one : other); }

    int rings = 0;
    QStringList answers;
    std::unique_ptr<QObject> object = std::make_unique<QObject>();
    awaited_t awaited{object.get(), &QObject::objectNameChanged};
};

void early(bell_t& bell)
{
    bell.ring();
    bell.listen();
}
void late(bell_t& bell)
{
    bell.soon([&] { bell.ring(); });
    bell.listen();
}
void never(bell_t& bell)
{
    QElapsedTimer clock;
    clock.start();
    bell.listen(60ms);
    bell.note(clock.elapsed() >= 60, "in time", "too soon");
}
// Each ring is told once.
void twice(bell_t& bell)
{
    bell.ring();
    bell.ring();
    bell.listen();
    bell.listen();
    bell.listen(30ms);
    bell.ring();
    bell.note(bell.awaited.hasNotCome(), "none", "one");
    bell.listen();
    bell.note(bell.awaited.hasNotCome(), "none", "one");
}
// The outer wait goes on only when the slot has ended.
void whileAnotherWaits(bell_t& bell)
{
    bool left = false;
    bell.soon([&] {
        bell.soon([&] { bell.ring(); });
        until([&] { return bell.rings == 1; });
        until([] { return false; }, 50ms);
        left = true;
    });
    bell.listen();
    bell.note(left, "after", "within");
}
// One ring for two waits is one answer, and leaves no debt.
void sharedWithAnother(bell_t& bell)
{
    bell.soon([&] {
        bell.soon([&] { bell.ring(); });
        bell.listen(50ms);
    });
    bell.listen();
    bell.listen(30ms);
    bell.ring();
    bell.listen(30ms);
}
void gone(bell_t& bell)
{
    bell.soon([&] { bell.object.reset(); });
    bell.listen();
}
void goneAfterwards(bell_t& bell)
{
    bell.ring();
    bell.object.reset();
    bell.listen();
    bell.listen();
}
void fromAThread(bell_t& bell)
{
    const std::unique_ptr<QThread> thread(QThread::create([&] { bell.ring(); }));
    thread->start();
    bell.listen();
    thread->wait();
}
// A slot at work keeps what it has given to deleteLater(); what the test itself has given goes.
void deletedLater(bell_t& bell)
{
    const QPointer<QObject> own(new QObject);
    own->deleteLater();
    bell.soon([&] {
        const QPointer<QObject> slot(new QObject);
        slot->deleteLater();
        until([] { return false; }, 30ms);
        bell.note(slot, "kept", "lost");
    });
    until([&] { return !bell.answers.isEmpty(); });
    bell.note(own, "kept", "gone");
}
// Comes last: no loop starts in this program any more.
void quit(bell_t& bell)
{
    QCoreApplication::quit();
    late(bell);
    bell.listen(30ms);
}

using scene_t = void (*)(bell_t&);

} // namespace

Q_DECLARE_METATYPE(scene_t)

class unit_waiting : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void wait_data()
    {
        QTest::addColumn<scene_t>("scene");
        QTest::addColumn<QString>("answers");
        QTest::newRow("before the wait") << &early << "yes"_s;
        QTest::newRow("in the wait") << &late << "yes"_s;
        QTest::newRow("never") << &never << "no, in time"_s;
        QTest::newRow("each once") << &twice << "yes, yes, no, one, yes, none"_s;
        QTest::newRow("in a wait within the wait") << &whileAnotherWaits << "yes, after"_s;
        QTest::newRow("shared with a wait within the wait") << &sharedWithAnother << "no, yes, no, yes"_s;
        QTest::newRow("an object that goes") << &gone << "no"_s;
        QTest::newRow("an object that goes after it") << &goneAfterwards << "yes, no"_s;
        QTest::newRow("from a thread") << &fromAThread << "yes"_s;
        QTest::newRow("deleteLater()") << &deletedLater << "kept, gone"_s;
        QTest::newRow("an application that is to quit") << &quit << "yes, no"_s;
    }
    void wait()
    {
        QFETCH(scene_t, scene);
        bell_t bell;
        QElapsedTimer clock;
        clock.start();
        scene(bell);
        QTEST(bell.answers.join(", "_l1), "answers");
        QVERIFY(clock.elapsed() < patience.count() / 2); // none waits for what cannot come
    }
};

QTEST_GUILESS_MAIN(unit_waiting)
#include "unit_waiting.moc"
