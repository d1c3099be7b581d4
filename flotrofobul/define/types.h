// SPDX-License-Identifier: MIT
// The small value types of the protocol: node roles, destination words, and the enumerations for quality of service,
// direction of a subscription and state of a request.
#pragma once

#include <flotrofobul/export.h>

#include <QtCore/QMetaType>
#include <QtCore/QString>

namespace comunication {
namespace utility {

/// MQTT 3.1.1 quality of service; passed to the broker client unchanged.
enum qos_t : int { at_most_once = 0, at_least_once = 1, exactly_once = 2 };

/// Tells an operation whether to subscribe or unsubscribe; anything but 1 unsubscribes.
enum subscribe_t : int { unsubscribe_topics = 0, subscribe_topics = 1 };

/// State of a request to the broker.
enum state_req_t : int {
    state_none = 0,         ///< not sent yet
    state_registered = 1,   ///< sent, not acknowledged
    state_acknowledged = 2, ///< publish or subscribe acknowledged
    state_unsubscribed = 3  ///< unsubscribe acknowledged
};

/// A word of the protocol. Only the text matters; the index tells the order of creation. A text becomes a word
/// by itself where one is expected.
class FLOTROFOBUL_EXPORT word_t {
public:
    quint32 index; ///< number of the word among those of its type
    QString text;

    QString ToString() const { return text; }

protected:
    explicit word_t(quint32& counter) : word_t(counter, QString()) {}
    // The counters are plain numbers, and words are made in every thread.
    word_t(quint32& counter, const QString& word) : index(__atomic_fetch_add(&counter, 1, __ATOMIC_RELAXED)), text(word)
    {}
};

/// Role of a node.
class FLOTROFOBUL_EXPORT service_t : public word_t {
public:
    service_t() : word_t(maxI) {}
    service_t(const QString& word) : word_t(maxI, word) {}
    bool operator==(const service_t& other) const { return text == other.text; }

    static quint32 maxI; ///< index of the next word
    static const service_t server;
    static const service_t client;
};

/// Destinations that a client publishes to.
class FLOTROFOBUL_EXPORT destination_publish_client_t : public word_t {
public:
    destination_publish_client_t() : word_t(maxI) {}
    destination_publish_client_t(const QString& word) : word_t(maxI, word) {}
    bool operator==(const destination_publish_client_t& other) const { return text == other.text; }

    static quint32 maxI; ///< index of the next word, including a server's
    static const destination_publish_client_t idserver;
    static const destination_publish_client_t own_server;
};

/// Destinations that a server publishes to. They continue the indexes of the client's words; the type's own counter is
/// declared, but never used.
class FLOTROFOBUL_EXPORT destination_publish_server_t : public destination_publish_client_t {
public:
    using destination_publish_client_t::destination_publish_client_t;
    bool operator==(const destination_publish_server_t& other) const { return text == other.text; }

    static quint32 maxI; ///< stays 0
    static const destination_publish_server_t all;
    static const destination_publish_server_t all_servers;
    static const destination_publish_server_t all_clients;
};

/// Destinations that subscriptions listen to.
class FLOTROFOBUL_EXPORT destination_subscription_t : public word_t {
public:
    destination_subscription_t() : word_t(maxI) {}
    destination_subscription_t(const QString& word) : word_t(maxI, word) {}
    bool operator==(const destination_subscription_t& other) const { return text == other.text; }

    static quint32 maxI; ///< index of the next word
    static const destination_subscription_t jolly;
    static const destination_subscription_t multilevel;
    static const destination_subscription_t all;
    static const destination_subscription_t all_clients;
    static const destination_subscription_t idserver;
    static const destination_subscription_t idclient;
};

} // namespace utility
} // namespace comunication

Q_DECLARE_METATYPE(comunication::utility::qos_t)
Q_DECLARE_METATYPE(comunication::utility::subscribe_t)
Q_DECLARE_METATYPE(comunication::utility::state_req_t)
