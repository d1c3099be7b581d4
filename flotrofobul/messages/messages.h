// SPDX-License-Identifier: MIT
// The requests that wait for the broker's acknowledgement, by message id (mid).
#pragma once

#include <flotrofobul/define/types.h>

#include <QtCore/QDateTime>
#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>

namespace comunication {
namespace message {

using utility::qos_t;
using utility::state_req_t;

/// What all tracked requests have in common.
class FLOTROFOBUL_EXPORT classmessage {
public:
    classmessage();

    /// Local time at which the record was created.
    QDateTime getTimeCreation() const { return QDateTime::fromMSecsSinceEpoch(timeCreation); }
    QString getTopic() const { return topic; }
    void setTopic(const QString& value) { topic = value; }
    qos_t getQos() const { return qos; }
    void setQos(const qos_t& value) { qos = value; }
    state_req_t getState() const { return state; }
    void setState(const state_req_t& value) { state = value; }
    int getMid() const { return mid; }
    void setMid(int value) { mid = value; }

private:
    qint64 timeCreation; ///< ms since the epoch; finding the local time costs more than the rest of a record
    QString topic;
    qos_t qos = utility::at_most_once;
    state_req_t state = utility::state_none;
    int mid = 0;
};

/// A subscription, or an unsubscription that waits for its acknowledgement. A record never has a QObject parent, the
/// argument is ignored: whoever creates a record owns it.
class FLOTROFOBUL_EXPORT classsubscribe : public QObject, public classmessage {
    Q_OBJECT
    Q_PROPERTY(QString topic READ getTopic WRITE setTopic)
    Q_PROPERTY(qos_t qos READ getQos WRITE setQos)
    Q_PROPERTY(int mid READ getMid WRITE setMid)
    Q_PROPERTY(state_req_t state READ getState WRITE setState)

public:
    explicit classsubscribe(QObject* parent);
    classsubscribe(const QString& topic, qos_t qos, int mid, state_req_t state, QObject* parent);

    /// Null: no operation of the registry sets it.
    QDateTime getTimeSubsciption() const { return timeSubscription; }

private:
    QDateTime timeSubscription;
};

/// A publication that waits for its acknowledgement; owned like a subscription.
class FLOTROFOBUL_EXPORT classpublish : public QObject, public classmessage {
    Q_OBJECT
    Q_PROPERTY(QString topic READ getTopic WRITE setTopic)
    Q_PROPERTY(qos_t qos READ getQos WRITE setQos)
    Q_PROPERTY(int mid READ getMid WRITE setMid)
    Q_PROPERTY(state_req_t state READ getState WRITE setState)
    Q_PROPERTY(QString payload READ getPayload WRITE setPayload)
    Q_PROPERTY(bool retainflag READ getRetainflag WRITE setRetainflag)
    Q_PROPERTY(bool dubflag READ getDubflag WRITE setDubflag)

public:
    explicit classpublish(QObject* parent);
    classpublish(const QString& topic, const QString& payload, int mid, qos_t qos, bool retainflag, state_req_t state,
                 QObject* parent);

    /// Null: no operation of the registry sets it.
    QDateTime getTimePublication() const { return timePublication; }
    QString getPayload() const { return payload; }
    void setPayload(const QString& value) { payload = value; }
    bool getRetainflag() const { return retainflag; }
    void setRetainflag(bool value) { retainflag = value; }
    bool getDubflag() const { return dubflag; } ///< the MQTT duplicate flag
    void setDubflag(bool value) { dubflag = value; }

private:
    QDateTime timePublication;
    QString payload;
    bool retainflag = false;
    bool dubflag = false;
};

/// The registry. It owns its records, and deletes them when they are removed, on reset() and in its destructor. All
/// calls must come from one thread. Lookups, removals and reset() log an exception as "Handling exception" at level 1
/// and return null or -2; additions let it pass.
class FLOTROFOBUL_EXPORT classmessages {
public:
    classmessages();
    ~classmessages();
    classmessages(const classmessages&) = delete;
    classmessages& operator=(const classmessages&) = delete;

    /// Registers a request under its mid, in state 1; always true. A record that it replaces is not deleted at once,
    /// because a host may hold it: the last 64 of them are kept until reset(), unless the host deletes them itself.
    bool addSubscription(int mid, const QString& topic, qos_t qos);
    bool addPublication(int mid, const QString& topic, const QString& payload, qos_t qos, bool retain);

    /// The record with the mid, or null.
    classsubscribe* getSubsciption(int mid);
    classpublish* getPublications(int mid);

    /// The lowest mid of all subscriptions, whatever the topic; -1 if there are none.
    int getMidSubsciption(const QString& topic);

    /// Removes and deletes a record; returns 1, or 0 if there is none.
    int removePublications(int mid);
    int removeSubsciption(int mid);

    /// Removes and deletes every record; returns 0.
    int reset();

    /// The maps themselves, which live as long as the registry.
    QMap<int, classsubscribe*>* getSubscriptions() const;
    QMap<int, classpublish*>* getPublications() const;

private:
    struct requests_t;

    std::unique_ptr<requests_t> requests;
};

} // namespace message
} // namespace comunication
