// SPDX-License-Identifier: MIT
#include "connection/connection.h"

#include "command.h"

#include <flotrofobul/platform/config/mosquittocnf.h>
#include <flotrofobul/platform/logs/classlogs.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QScopeGuard>

#include <algorithm>
#include <utility>

namespace comunication {
namespace tools {

namespace {

enum class kind_t { text, number, yes, file, passwordFile };

/// An option and the key of the configuration that it sets.
struct option_t {
    const char* name;
    const char* value; ///< null: none
    kind_t kind;
    const char* section;
    const char* key;
    const char* words;
};

constexpr option_t table[] = {
    {"host", "HOST[:PORT]", kind_t::text, "global", "host", "Name or address of the broker."},
    {"port", "PORT", kind_t::number, "global", "port", "Its port (default 1883)."},
    {"installation", "ID", kind_t::text, "global", "installation_id", "Installation id of the house."},
    {"username", "NAME", kind_t::text, "connect", "username", "User name for the broker."},
    {"password-file", "FILE", kind_t::passwordFile, "connect", "password",
     "File whose first line is the password; - is standard input."},
    {"ca-file", "FILE", kind_t::file, "security", "ca_file", "Encrypt the link; trusted certificates (PEM)."},
    {"insecure", nullptr, kind_t::yes, "security", "tls_insecure", "Accept a certificate for another host."},
    {"timeout", "SECONDS", kind_t::number, "connect", "timeout", "For one attempt to connect (default 10)."},
};

const QString configOption = QStringLiteral("config");

QString named(const char* text)
{
    return QString::fromLatin1(text);
}

void set(QJsonObject& configuration, const char* section, const char* key, const QJsonValue& value)
{
    QJsonObject mqtt = configuration.value(QStringLiteral("mqtt")).toObject();
    QJsonObject object = mqtt.value(named(section)).toObject();
    object.insert(named(key), value);
    mqtt.insert(named(section), object);
    configuration.insert(QStringLiteral("mqtt"), mqtt);
}

bool othersMayRead(const QString& path)
{
    return (QFileInfo(path).permissions() & (QFileDevice::ReadOther | QFileDevice::ReadGroup)) != 0;
}

std::optional<QString> readPassword(const QString& path)
{
    QFile file(path);
    const bool open =
        path == QLatin1String("-") ? file.open(stdin, QIODevice::ReadOnly) : file.open(QIODevice::ReadOnly);
    if (!open) {
        complain(QStringLiteral("The password file %1 cannot be read: %2").arg(path, file.errorString()));
        return std::nullopt;
    }
    if (path != QLatin1String("-") && othersMayRead(path)) {
        complain(QStringLiteral("%1 holds a password and others can read it: chmod 600 %1").arg(path));
    }
    QByteArray line = file.readLine();
    while (line.endsWith('\n') || line.endsWith('\r')) {
        line.chop(1);
    }
    return QString::fromUtf8(line);
}

std::optional<QJsonObject> readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        complain(QStringLiteral("The configuration %1 cannot be read: %2").arg(path, file.errorString()));
        return std::nullopt;
    }
    const QByteArray bytes = file.readAll();
    QJsonParseError outcome{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &outcome);
    if (!document.isObject()) {
        const QByteArray before = bytes.left(outcome.offset);
        complain(outcome.error == QJsonParseError::NoError
                     ? QStringLiteral("The configuration %1 is no JSON object.").arg(path)
                     : QStringLiteral("The configuration %1 is no JSON: %2 at line %3, column %4")
                           .arg(path, outcome.errorString())
                           .arg(before.count('\n') + 1)
                           .arg(before.size() - before.lastIndexOf('\n')));
        return std::nullopt;
    }
    const QJsonObject connect =
        document.object()[QStringLiteral("mqtt")].toObject()[QStringLiteral("connect")].toObject();
    if (!connect[QStringLiteral("password")].toString().isEmpty() && othersMayRead(path)) {
        complain(QStringLiteral("%1 holds a password and others can read it: chmod 600 %1").arg(path));
    }
    return document.object();
}

/// Lets the model of the configuration judge it: what it refuses it says in the log.
std::optional<connection_t> judged(const QJsonObject& configuration, const QString& file)
{
    auto* const logs = ::utility::logs::classlogs::getInstance();
    QStringList refused;
    logs->setLevel(::utility::logs::error);
    logs->setSink([&](const ::utility::logs::LogRecord& line) {
        if (line.level <= ::utility::logs::error) {
            refused << line.message;
        }
    });
    config::mosquittocnf model;
    const bool taken = model.deserialize(configuration);
    logs->setSink({});
    logs->setLevel(::utility::logs::fatal);
    const QString place = file.isEmpty() ? QString() : file + QStringLiteral(": ");
    for (const QString& line : refused + model.remarks()) {
        complain(place + line);
    }
    if (!taken || !refused.isEmpty()) {
        return std::nullopt;
    }
    connection_t result = connectionOf(model);
    result.file = file;
    return result;
}

/// Takes the options over into a configuration. False after words on what is wrong.
bool apply(const QCommandLineParser& options, const QString& host, const std::optional<QString>& password,
           QJsonObject& configuration)
{
    for (const option_t& option : table) {
        const QString name = named(option.name);
        if (!options.isSet(name)) {
            continue;
        }
        const QString value = options.value(name);
        bool isNumber = true;
        switch (option.kind) {
        case kind_t::text: set(configuration, option.section, option.key, value); break;
        case kind_t::number: set(configuration, option.section, option.key, value.toInt(&isNumber)); break;
        case kind_t::yes: set(configuration, option.section, option.key, true); break;
        case kind_t::passwordFile: set(configuration, option.section, option.key, *password); break;
        case kind_t::file:
            set(configuration, option.section, option.key, value);
            set(configuration, "security", "tls_enable", true);
            break;
        }
        if (!isNumber) {
            complain(QStringLiteral("--%1 takes a number, not \"%2\".").arg(name, value));
            return false;
        }
    }
    // One colon is followed by a port; more of them are an address of IPv6, behind whose brackets a port may follow.
    const int bracket = host.startsWith(QLatin1Char('[')) ? host.indexOf(QLatin1Char(']')) : -1;
    const bool hasPort =
        bracket < 0 ? host.count(QLatin1Char(':')) == 1 : host.mid(bracket + 1, 1) == QLatin1String(":");
    const int colon = hasPort ? host.indexOf(QLatin1Char(':'), std::max(bracket, 0)) : -1;
    if (bracket >= 0 && (hasPort || bracket + 1 == host.size())) {
        set(configuration, "global", "host", host.mid(1, bracket - 1));
    } else if (!host.isEmpty()) {
        set(configuration, "global", "host", host.left(colon));
    }
    if (colon >= 0) {
        bool isNumber = false;
        set(configuration, "global", "port", host.mid(colon + 1).toInt(&isNumber));
        if (!isNumber || options.isSet(QStringLiteral("port"))) {
            complain(isNumber ? QStringLiteral("A port both in --host %1 and in --port.").arg(host)
                              : QStringLiteral("--host: what follows the colon is no port."));
            return false;
        }
    }
    return true;
}

bool isSound(const connection_t& connection, installation_t installation)
{
    const auto isLetterOrDigit = [](QChar c) { return c.isLetterOrNumber() && c.unicode() < 0x80; };
    const QString& id = connection.installationId;
    QString wrong;
    if (connection.host.isEmpty()) {
        wrong = QStringLiteral("The host of the broker is empty.");
    } else if (isUrl(connection.host)) {
        wrong = QStringLiteral("The host is a name or an address, no URL; a user goes to --username, a password to "
                               "--password-file.");
    } else if (id.isEmpty() && installation == installation_t::needed) {
        wrong = QStringLiteral("Which installation? Name its id with --installation, or give a host's configuration "
                               "with --config.");
    } else if (!std::all_of(id.begin(), id.end(), isLetterOrDigit)) {
        wrong = QStringLiteral("Installation id \"%1\": it may have letters and digits only, since engines use it as "
                               "a character class.")
                    .arg(id);
    } else if (connection.tlsEnable && !QFileInfo(connection.caFile).isReadable()) {
        wrong = connection.caFile.isEmpty()
                    ? QStringLiteral("\"tls_enable\" is set and there is no ca_file: name the trusted certificates "
                                     "with --ca-file.")
                    : QStringLiteral("The certificates in %1 cannot be read.").arg(connection.caFile);
    } else if (connection.tlsInsecure && !connection.tlsEnable) {
        wrong = QStringLiteral("--insecure is of use with TLS only: name the trusted certificates with --ca-file.");
    } else if (connection.username.isEmpty() && !connection.password.isEmpty()) {
        wrong = QStringLiteral("There is a password and no user name: see --username.");
    }
    if (!wrong.isEmpty()) {
        complain(connection.file.isEmpty() ? wrong : connection.file + QStringLiteral(": ") + wrong);
    }
    return wrong.isEmpty();
}

} // namespace

void addConnectionOptions(QCommandLineParser& options)
{
    options.addOption({configOption, QStringLiteral("A host's configuration; the options below take precedence."),
                       QStringLiteral("FILE")});
    for (const option_t& option : table) {
        options.addOption(option.value != nullptr
                              ? QCommandLineOption(named(option.name), named(option.words), named(option.value))
                              : QCommandLineOption(named(option.name), named(option.words)));
    }
}

bool isUrl(const QString& host)
{
    return host.contains(QLatin1Char('@')) || host.contains(QLatin1Char('/'));
}

std::optional<QVector<connection_t>> readConnections(const QCommandLineParser& options, installation_t installation)
{
    QStringList files = options.values(configOption);
    QStringList hosts = options.values(QStringLiteral("host"));
    if (files.size() > 1 && hosts.size() > 1) {
        complain(QStringLiteral("Either several --config or several --host."));
        return std::nullopt;
    }
    std::optional<QString> password = QString();
    if (options.isSet(QStringLiteral("password-file"))) {
        password = readPassword(options.value(QStringLiteral("password-file")));
        if (!password) {
            return std::nullopt;
        }
    }
    const int count = std::max<int>(1, std::max(files.size(), hosts.size()));
    QVector<connection_t> result;
    for (int i = 0; i < count; ++i) {
        const QString file = files.value(files.size() == 1 ? 0 : i);
        std::optional<QJsonObject> configuration = file.isEmpty() ? QJsonObject() : readFile(file);
        if (!configuration || !apply(options, hosts.value(hosts.size() == 1 ? 0 : i), password, *configuration)) {
            return std::nullopt;
        }
        const std::optional<connection_t> connection = judged(*configuration, file);
        if (!connection || !isSound(*connection, installation)) {
            return std::nullopt;
        }
        result << *connection;
    }
    return result;
}

std::optional<connection_t> readConnection(const QCommandLineParser& options, installation_t installation)
{
    const auto connections = readConnections(options, installation);
    if (connections && connections->size() > 1) {
        complain(QStringLiteral("One broker only: one --config, one --host."));
        return std::nullopt;
    }
    return connections ? std::optional<connection_t>(connections->first()) : std::nullopt;
}

} // namespace tools
} // namespace comunication
