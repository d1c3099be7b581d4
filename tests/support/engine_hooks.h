// SPDX-License-Identifier: MIT
// A client engine whose hooks only tell that they were called, and configurations for engines without a broker.
#pragma once

#include "support/engine_probe.h"

inline QJsonObject parse(QByteArray text)
{
    return QJsonDocument::fromJson(text.replace('\'', '"')).object();
}

inline QJsonObject installation(const char* id = "1234")
{
    return parse(QByteArray("{'mqtt':{'global':{'installation_id':'") + id + "'}}}");
}

// One engine whose hooks only tell that they were called.
class hooks_t : public probe_t<comunication::protoclient_t> {
public:
    hooks_t(QStringList& list, const QString& id = "panel"_s)
        : probe_t(list, "1"_s, installation(), id, false), calls(list)
    {}
    using comunication::protoclient_t::init_subscription;

protected:
    void onConnect(int rc) override { calls << "onConnect %1"_s.arg(rc); }
    void onConnect_with_flags(int rc, int flags) override { calls << "role %1 %2"_s.arg(rc).arg(flags); }
    void onDisconnect(int rc) override { calls << "role %1 %2"_s.arg(rc).arg(messages->getSubscriptions()->size()); }
    void onPublish(int mid) override { calls << "onPublish %1"_s.arg(mid); }
    void onSubscribe(int mid, int count, int const* granted, QString topic) override
    {
        calls << "onSubscribe %1 %2 %3 %4"_s.arg(mid).arg(count).arg(granted[count - 1]).arg(topic);
    }
    void onUnsubscribe(int mid, QString topic) override { calls << "onUnsubscribe %1 %2"_s.arg(mid).arg(topic); }
    void onLog(int level, QString text) override { calls << "onLog %1 %2"_s.arg(level).arg(text); }
    void onError() override { calls << "onError"_s; }
    void onMessage(int mid, comunication::utility::topic_t topic, QJsonValue value, int qos, bool retain) override
    {
        calls << "onMessage %1 %2 %3 %4 %5"_s.arg(mid).arg(topic.getValue(), probe::textOf(value)).arg(qos).arg(retain);
    }
    void onChangeStausBroker(int mid, QString topic, QString payload, int length, int qos, bool retain) override
    {
        calls
            << "onChangeStausBroker %1 %2 %3 %4 %5 %6"_s.arg(mid).arg(topic, payload).arg(length).arg(qos).arg(retain);
    }

private:
    QStringList& calls;
};
