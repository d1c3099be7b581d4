// SPDX-License-Identifier: MIT
// What an engine tells whoever looks after its host: what is probably wrong, and what to do about it. Internal. All of
// it is written under the one name "advice", after the lines of what it is about, and can be switched off
// (classlogs::setAdvice).
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QJsonParseError>
#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QTimer>

#include <atomic>
#include <functional>
#include <vector>

namespace comunication {

/// Writes each thing once until the next connection, and never more than a few hundred things, so that a flood of bad
/// packets is no flood of lines.
class advice_t {
public:
    /// parent: the engine, with which the timer moves to another thread.
    explicit advice_t(QObject* parent);

    /// Until release() nothing is written: while an engine is built, its own lines come first.
    void hold() { held = true; }
    void release();

    // Configuration

    void configurationNotRead(const QString& path, const QString& why);
    /// bytes is what the error's offset counts in.
    void configurationNoJson(const QString& path, const QByteArray& bytes, const QJsonParseError& outcome);
    /// The words of the configuration's model for what it does not know.
    void configurationRemarks(const QStringList& remarks);
    /// Says so when the topic grammar recognises no topic of the installation.
    void installationId(const QString& id);
    /// hostname: that of this machine, empty if the engine was built with an id. Says so when the id is made of it and
    /// other machines have it, too.
    void clientId(const QString& id, const QString& hostname);

    // Link

    void connected() { said.clear(); }
    void subscriptionRefused(const QString& topic);
    /// After a while without a master, tells what has been heard: a text for each server.
    void waitForMaster(std::function<QStringList()> heard);
    void stopWaiting() { waiting.stop(); }
    /// A panel is there, and the host has not asked for requests.
    void nobodyListens(const QString& panel);

    // Packets

    void packetLacks(const QJsonObject& packet);
    void placeholderLeadsBack(const QString& topic);
    /// May be called from any thread.
    void foreignThread();
    void payloadNoJson(const QString& sender, const QString& topic, const QString& payload,
                       const QJsonParseError& outcome);

private:
    void say(int level, const QString& text) { say(level, text, text); }
    void say(int level, const QString& key, const QString& text);

    struct line_t {
        int level;
        QString text;
    };

    bool held = false;
    std::vector<line_t> heldLines;
    bool isSaid(const QString& key) const { return said.contains(qHash(key)); }
    bool hasRoom() const;

    QSet<uint> said; // hashes: a stranger's texts may be long
    std::atomic<bool> foreignThreadSeen{false};
    QTimer waiting;
    std::function<QStringList()> heardServers;
};

/// Writes a payload for whoever follows every packet (level 7), as the packet passes, decoded where it is JSON in
/// Base64. Values under a key like "password" are left out, and what is longer than 1,024 bytes is cut.
void tracePayload(QLatin1String direction, const QString& topic, const QString& payload);

} // namespace comunication
