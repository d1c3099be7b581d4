// SPDX-License-Identifier: MIT
// The options by which every subcommand is told which broker to reach and as whom: one table, one result.
#pragma once

#include <QtCore/QCommandLineParser>
#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QVector>

#include <optional>

namespace comunication {
namespace config {
class mosquittocnf;
}
namespace tools {

/// How to reach a broker.
struct connection_t {
    QJsonObject configuration; ///< as a host has it, with all that the options say
    QString file;              ///< where it was read; empty without one
    QString installationId;    ///< empty: none was named
    QString host;
    int port = 0;
    QString username;
    QString password;
    bool tlsEnable = false;
    bool tlsInsecure = false;
    QString caFile;
    int keepalive = 0; ///< seconds
    int timeout = 0;   ///< seconds that an attempt to connect may take
    int maxPacketBytes = 0;

    /// "host:port", for people.
    [[nodiscard]] QString name() const;
};

/// Whether it is an address of the web, which may hold a password, in place of the name of a host.
[[nodiscard]] bool isUrl(const QString& host);

/// The one that a configuration describes; "file" stays empty.
[[nodiscard]] connection_t connectionOf(config::mosquittocnf& model);

enum class installation_t { optional, needed };

/// Adds the options of a connection to those of a subcommand. --host and --config may be repeated: several brokers.
void addConnectionOptions(QCommandLineParser& options);

/// What the options ask for, at least one connection. Where something is wrong it is said on standard error, and there
/// is no result: the exit code is misused.
[[nodiscard]] std::optional<QVector<connection_t>> readConnections(const QCommandLineParser& options,
                                                                   installation_t installation);

/// The same for a subcommand that speaks with one broker.
[[nodiscard]] std::optional<connection_t> readConnection(const QCommandLineParser& options,
                                                         installation_t installation);

} // namespace tools
} // namespace comunication
