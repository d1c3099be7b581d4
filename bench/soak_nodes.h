// SPDX-License-Identifier: MIT
// The adapters under test and the hosts around them, who publish, subscribe, leave and come back at random.
#pragma once

#include "ledger.h"

#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>

#include <QtCore/QHash>
#include <QtCore/QRandomGenerator>
#include <QtCore/QTimer>

/// What a node does, and how it reaches the broker.
enum class task_t { publish, listen };
struct setup_t {
    QByteArray name;
    task_t task;
    bool kept; ///< the broker keeps the session
    quint16 port;
    QString cafile; ///< empty without TLS
    quint32 seed;
    int mostMessages;
};

/// A host that does something every now and then, from begin() to rest().
class node_t : public comunication::mosquittopp::mosquittoqt {
public:
    explicit node_t(const setup_t& setup)
        : mosquittoqt(QString::fromLatin1(setup.name), !setup.kept, true), name(setup.name), task(setup.task),
          kept(setup.kept), ledger(setup.mostMessages), random(setup.seed), port(setup.port)
    {
        if (!setup.cafile.isEmpty()) {
            tls_set(setup.cafile, QString(), QString(), QString());
        }
        setConnectTimeout(3);
        setLoopInterval(500);
        connect(&nextAct, &QTimer::timeout, this, [this] {
            nextAct.start(random.bounded(longestPause));
            act();
        });
        connect(this, &node_t::onDisconnect, [this](int rc) { losses += rc != 0; });
    }

    void dial() { connect_async(QStringLiteral("127.0.0.1"), port, 5); }
    void begin() { nextAct.start(0); }
    void rest() { nextAct.stop(); }
    /// Connected, and nothing waits to be acknowledged.
    virtual bool isReady() const = 0;

    const QByteArray name;
    const task_t task;
    const bool kept;
    ledger_t ledger; ///< of what it publishes, or of what it is to receive
    int losses = 0;
    int strays = 0; ///< acknowledgements of nothing

protected:
    const QString feedTopic = QStringLiteral("feed");
    static constexpr int longestPause = 80;

    virtual void act() = 0;

    /// A host that does not wait for the back-off. Now and then its wishes have changed, so that it asks for another
    /// connection while an attempt is under way.
    void hurry() { connect_async(QStringLiteral("127.0.0.1"), port, random.bounded(5, 7)); }
    void leave()
    {
        disconnect_sync();
        QTimer::singleShot(random.bounded(2) * random.bounded(1500), this, &node_t::dial);
    }
    bool happens(double share) { return random.generateDouble() < share; }

    QRandomGenerator random;

private:
    const quint16 port;
    QTimer nextAct;
};

/// Publishes everything once, to its name as the topic, and listens to the feed now and then.
class publisher_t : public node_t {
public:
    explicit publisher_t(const setup_t& setup) : node_t(setup)
    {
        connect(this, &publisher_t::onPublish, [this](int mid) { acknowledged(mid); });
    }

    bool isReady() const override { return getConnected() && pending.isEmpty(); }
    int unacknowledged() const { return pending.size(); }

protected:
    void act() override
    {
        if (happens(0.8)) {
            say(random.bounded(300));
        }
        for (int burst = happens(0.08) ? random.bounded(60) : 0; burst > 0; --burst) {
            say(random.bounded(300));
        }
        if (happens(0.02)) {
            say(1 << random.bounded(11, 20));
        }
        if (happens(0.05)) {
            happens(0.5) ? subscribe(nullptr, feedTopic, random.bounded(3)) : unsubscribe(nullptr, feedTopic);
        }
        if (happens(0.02)) {
            hurry();
        }
        if (happens(0.004)) {
            leave();
        }
    }

private:
    struct pending_t {
        int number;
        int bytes;
    };

    // Far below what the outbox holds without a connection: nothing may be dropped.
    static constexpr int mostPending = 300;
    static constexpr int mostPendingBytes = 2 * 1024 * 1024;

    void say(int filling)
    {
        if (pending.size() >= mostPending || pendingBytes + filling > mostPendingBytes || ledger.isFull()) {
            return;
        }
        const int qos = random.bounded(3);
        const int number = ledger.ask(qos);
        const QByteArray payload = payloadOf(number, filling);
        int mid = 0;
        if (publish(&mid, QString::fromLatin1(name), QString::fromLatin1(payload), qos, false) != 0) {
            ledger.takeBack();
            return;
        }
        const int bytes = payload.size();
        pending.insert(mid, {number, bytes});
        pendingBytes += bytes;
    }

    void acknowledged(int mid)
    {
        const auto one = pending.find(mid);
        if (one == pending.end()) {
            ++strays;
            return;
        }
        ledger.acknowledge(one->number);
        pendingBytes -= one->bytes;
        pending.erase(one);
    }

    QHash<int, pending_t> pending;
    int pendingBytes = 0;
};

/// Listens to the feed at QoS 2, in every connection anew.
class subscriber_t : public node_t {
public:
    explicit subscriber_t(const setup_t& setup) : node_t(setup)
    {
        connect(this, &subscriber_t::onDisconnect, [this] { subscribed = false; });
        connect(this, &subscriber_t::onConnect, [this](int rc) {
            if (rc == 0) {
                subscribe(nullptr, feedTopic, 2);
            }
        });
        connect(this, &subscriber_t::onSubscribe, [this] { subscribed = true; });
        connect(this, &subscriber_t::onMessage,
                [this](int, const QString&, const QString& payload) { ledger.arrive(payload.toLatin1()); });
    }

    bool isReady() const override { return getConnected() && subscribed; }
    /// So far behind that the broker might soon drop what it keeps for this node.
    bool isFarBehind() const { return kept && ledger.size() - ledger.newest(2) > 500; }

protected:
    void act() override
    {
        if (happens(0.02)) {
            hurry();
        }
        if (happens(0.004)) {
            leave();
        }
    }

private:
    bool subscribed = false;
};
