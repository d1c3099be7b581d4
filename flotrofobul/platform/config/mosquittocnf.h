// SPDX-License-Identifier: MIT
// The configuration as the engine reads it: the JSON object "mqtt" with its three sections, and the model that fills
// them. Bounds and defaults of numbers are in limits.h; files are the engine's business.
#pragma once

#include <flotrofobul/export.h>
#include <flotrofobul/platform/limits.h>

#include <QtCore/QJsonObject>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>

namespace comunication {
namespace config {

/// Section "mqtt.global": which installation this is and how to reach its broker.
///
/// The sections belong to the model that hands them out. A reference that a getter returns stays valid as long as the
/// model lives.
class FLOTROFOBUL_EXPORT config_global {
public:
    /// "installation_id": the installation's level in every topic; any text, empty by default. Without one no topic of
    /// the protocol is recognised, so every real configuration sets it.
    [[nodiscard]] const QString& getInstallation_id() const noexcept { return installationId; }

    /// "host": name or address of the broker; any text, "127.0.0.1" by default.
    [[nodiscard]] const QString& getHost() const noexcept { return host; }

    /// "port": TCP port of the broker.
    [[nodiscard]] int getPort() const noexcept { return port; }

    /// "interval": milliseconds between two rounds of housekeeping on the link, which send the keep-alive pings; at
    /// least 500 and at most a quarter of the keep-alive take effect.
    [[nodiscard]] int getInterval() const noexcept { return interval; }

    /// "autoconnect": whether the adapter reconnects when the link is lost or refused; true by default.
    [[nodiscard]] bool getAutoconnect() const noexcept { return autoconnect; }

    /// "logging": whether libmosquitto's own lines reach the log; false by default.
    [[nodiscard]] bool getLogging() const noexcept { return logging; }

    /// Changes "logging", so that a later save keeps it.
    void setLogging(bool on) noexcept { logging = on; }

private:
    friend struct settings_t;

    QString installationId;
    QString host = QStringLiteral("127.0.0.1");
    int port = limits::port.initial;
    int interval = limits::interval.initial.count();
    bool autoconnect = true;
    bool logging = false;
    QJsonObject unknown;
};

/// Section "mqtt.connect": the session with the broker, and limits on what it may cost.
class FLOTROFOBUL_EXPORT config_connect {
public:
    /// "keepalive": seconds of silence after which the link is checked. A value below ten is kept here and counts as
    /// ten when connecting.
    [[nodiscard]] int getKeepalive() const noexcept { return keepalive; }

    /// "cleansession": whether the broker forgets the session when the link ends; true by default. With false it keeps
    /// the session as long as this process lives.
    [[nodiscard]] bool getCleansession() const noexcept { return cleansession; }

    /// "username": any text, empty by default.
    [[nodiscard]] const QString& getUsername() const noexcept { return username; }

    /// "password": any text, empty by default. It is never written to the log.
    [[nodiscard]] const QString& getPassword() const noexcept { return password; }

    /// "timeout": seconds that one attempt to connect may take, from looking up the name to the broker's answer.
    [[nodiscard]] int getTimeout() const noexcept { return timeout; }

    /// "outbox_messages": how many messages may wait while the link is down.
    [[nodiscard]] int getOutbox_messages() const noexcept { return outboxMessages; }

    /// "outbox_bytes": how many bytes the waiting messages may hold together.
    [[nodiscard]] int getOutbox_bytes() const noexcept { return outboxBytes; }

    /// "max_packet_bytes": size of the largest payload that is accepted; a longer one is dropped.
    [[nodiscard]] int getMax_packet_bytes() const noexcept { return maxPacketBytes; }

private:
    friend struct settings_t;

    int keepalive = limits::keepalive.initial.count();
    bool cleansession = true;
    QString username = QStringLiteral(""); // not null, which would ask for no user name at all
    QString password;
    int timeout = limits::connectTimeout.initial.count();
    int outboxMessages = limits::outboxMessages.initial;
    int outboxBytes = limits::outboxBytes.initial;
    int maxPacketBytes = limits::packetBytes.initial;
    QJsonObject unknown;
};

/// Section "mqtt.security": TLS on the link.
class FLOTROFOBUL_EXPORT config_security {
public:
    /// "tls_enable": whether the link is encrypted; false by default.
    [[nodiscard]] bool getTls_enable() const noexcept { return tlsEnable; }

    /// "tls_insecure": whether a certificate for another host is accepted; false by default.
    [[nodiscard]] bool getTls_insecure() const noexcept { return tlsInsecure; }

    /// "ca_file": path of the PEM file with the trusted certificates; any text, empty by default.
    [[nodiscard]] const QString& getCa_file() const noexcept { return caFile; }

private:
    friend struct settings_t;

    bool tlsEnable = false;
    bool tlsInsecure = false;
    QString caFile;
    QJsonObject unknown;
};

/// The object "mqtt": the three sections, which live as long as it does and are never null.
class FLOTROFOBUL_EXPORT config_mqtt {
public:
    [[nodiscard]] config_global* getGlobal() noexcept { return &global; }
    [[nodiscard]] config_connect* getConnect() noexcept { return &connect; }
    [[nodiscard]] config_security* getSecurity() noexcept { return &security; }

private:
    friend class mosquittocnf;

    config_global global;
    config_connect connect;
    config_security security;
    QJsonObject unknown;
};

/// The configuration model: defaults, until an object sets other values.
///
/// Every key is optional; a missing one leaves the current value. An unknown key, on any level, is kept and written
/// back by serialize(), so that a newer file survives an older program. A value of the wrong type or out of range is
/// refused: one log line of level 2 names the key (as "mqtt.global.port"), the value (never a password) and what is
/// allowed; the current value stays, and the rest of the object is taken. A whole number may be written with an
/// exponent or with a fraction of zero, but not with any other fraction and not as a text.
///
/// The model emits nothing and belongs to whoever creates it; it is used on one thread.
class FLOTROFOBUL_EXPORT mosquittocnf : public QObject {
    Q_OBJECT

public:
    explicit mosquittocnf(QObject* parent = nullptr);
    ~mosquittocnf() override;

    /// The object "mqtt"; never null, valid as long as the model lives.
    [[nodiscard]] config_mqtt* getMqtt() const noexcept { return mqtt.get(); }

    /// Takes what the object sets. True even if single values in it were refused; false if its "mqtt" is no object, so
    /// that no setting could be read.
    bool deserialize(const QJsonObject& json);

    /// What the last deserialize() did not understand, a text for each unknown key (of the first few) with the key that
    /// was probably meant.
    [[nodiscard]] QStringList remarks() const { return unknownKeys; }

    /// The whole configuration: every known key with its current value, and the unknown keys as they came.
    [[nodiscard]] QJsonObject serialize() const;

private:
    Q_DISABLE_COPY(mosquittocnf)

    std::unique_ptr<config_mqtt> mqtt;
    QJsonObject unknown;
    QStringList unknownKeys;
};

} // namespace config
} // namespace comunication
