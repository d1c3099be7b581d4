// SPDX-License-Identifier: MIT
#include "doctor/configuration.h"

#include "connection/connection.h"

#include <flotrofobul/define/define.h>
#include <flotrofobul/define/topic_t.h>
#include <flotrofobul/house/settings.h>
#include <flotrofobul/platform/config/mosquittocnf.h>
#include <flotrofobul/platform/logs/classlogs.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QRegularExpression>

namespace comunication {
namespace tools {

using namespace ::utility::logs;

namespace {

const QString step = QStringLiteral("configuration");

/// What the library says while it lives.
class eavesdropper_t {
public:
    eavesdropper_t()
    {
        log->setLevel(warning);
        log->setSink([this](const LogRecord& line) { lines << line.message; });
    }
    ~eavesdropper_t()
    {
        log->setSink({});
        log->setLevel(fatal);
    }
    eavesdropper_t(const eavesdropper_t&) = delete;
    eavesdropper_t& operator=(const eavesdropper_t&) = delete;

    QStringList lines;

private:
    classlogs* const log = classlogs::getInstance();
};

void examineInstallation(const QString& id, diagnosis_t& diagnosis)
{
    if (id.isEmpty()) {
        diagnosis.wrong(QStringLiteral("the installation id is empty"),
                        QStringLiteral("mqtt.global.installation_id is missing or \"\", and without one no packet is "
                                       "recognised"),
                        QStringLiteral("give all nodes of the house the same id of letters and digits"));
        return;
    }
    if (!id.contains(QRegularExpression(QStringLiteral("^[A-Za-z0-9]+$")))) {
        utility::topic_t::setInstallationid(id);
        bool parsed = false;
        const utility::topic_t topic(LOCAL_PREFIX + u'/' + id + QStringLiteral("/a/b/c"), &parsed);
        const bool works = parsed && topic.getPlain() == id;
        diagnosis.wrong(
            QStringLiteral("the installation id \"%1\" has other characters than letters and digits").arg(id.left(80)),
            QStringLiteral("it becomes a level of topics and a character class: ") +
                QLatin1String(works ? "this one happens to work, others do not"
                                    : "with this one no packet of the house is recognised"),
            QStringLiteral("take an id of letters and digits, at all nodes of the house"));
    }
}

void examineAccess(config::config_mqtt& mqtt, diagnosis_t& diagnosis)
{
    if (mqtt.getGlobal()->getHost().isEmpty()) {
        diagnosis.wrong(QStringLiteral("no broker is named"), QStringLiteral("mqtt.global.host is \"\""),
                        QStringLiteral("set it to the name or the address of the broker"));
    }
    if (isUrl(mqtt.getGlobal()->getHost())) {
        diagnosis.wrong(QStringLiteral("the name of the broker is a URL"),
                        QStringLiteral("mqtt.global.host has a / or an @"),
                        QStringLiteral("set it to the name or the address alone; user and password have keys of "
                                       "their own in mqtt.connect"));
    }
    const auto& security = *mqtt.getSecurity();
    const QString file = security.getCa_file();
    const QString remedy =
        QStringLiteral("mqtt.security.ca_file has to name a file with the trusted certificates (PEM) "
                       "that this user may read");
    if (security.getTls_enable() && file.isEmpty()) {
        diagnosis.wrong(QStringLiteral("TLS is on, and no certificates to trust are named"),
                        QStringLiteral("mqtt.security.ca_file is empty"), remedy);
    } else if (security.getTls_enable() && !QFileInfo(file).isReadable()) {
        diagnosis.wrong(QStringLiteral("the certificates in %1 cannot be read").arg(file),
                        QFileInfo::exists(file) ? QStringLiteral("this user may not read it")
                                                : QStringLiteral("there is no such file"),
                        remedy);
    }
    if (security.getTls_insecure() && !security.getTls_enable()) {
        diagnosis.wrong(QStringLiteral("the link is not encrypted, though tls_insecure is set"),
                        QStringLiteral("without mqtt.security.tls_enable it has no effect"),
                        QStringLiteral("set tls_enable, or take tls_insecure out"));
    }
    if (mqtt.getConnect()->getUsername().isEmpty() && !mqtt.getConnect()->getPassword().isEmpty()) {
        diagnosis.wrong(QStringLiteral("there is a password without a user name"),
                        QStringLiteral("mqtt.connect.username is empty"),
                        QStringLiteral("set it, or take the password out"));
    }
}

} // namespace

std::optional<QJsonObject> readConfiguration(const QString& path, diagnosis_t& diagnosis)
{
    diagnosis.begin(step);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        diagnosis.wrong(QStringLiteral("%1 cannot be read").arg(path),
                        file.exists() ? file.errorString() : QStringLiteral("there is no such file"),
                        QStringLiteral("is the path right, and may this user read the file?"));
        return std::nullopt;
    }
    const QByteArray bytes = file.readAll();
    QJsonParseError outcome;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &outcome);
    if (outcome.error != QJsonParseError::NoError) {
        const QByteArray before = bytes.left(outcome.offset);
        diagnosis.wrong(
            QStringLiteral("%1 is no JSON").arg(path),
            QStringLiteral("line %1, column %2: %3")
                .arg(before.count('\n') + 1)
                .arg(QString::fromUtf8(before.mid(before.lastIndexOf('\n') + 1)).size() + 1)
                .arg(outcome.errorString()),
            QStringLiteral("look at that place and just before it: a comma too many or missing, a quote, a bracket"));
        return std::nullopt;
    }
    return document.object();
}

bool examineConfiguration(const QJsonObject& json, diagnosis_t& diagnosis)
{
    diagnosis.begin(step);
    const int before = diagnosis.faults();
    const QString keys = QStringLiteral("docs/configuration.md has all keys and what they may be");
    eavesdropper_t log;
    config::mosquittocnf model;
    if (!model.deserialize(json) || !json.contains(QStringLiteral("mqtt"))) {
        diagnosis.wrong(QStringLiteral("there is no object \"mqtt\" in it"),
                        QStringLiteral("an engine looks only there, and would go on with a broker on this machine and "
                                       "no installation"),
                        keys);
        return false;
    }
    house::settings_t rank;
    house::readSettings(json.value(QStringLiteral("house")), &rank);
    for (const QString& line : log.lines) {
        const bool refused = line.startsWith(QLatin1String("Refused"));
        diagnosis.wrong(line,
                        refused ? QStringLiteral("the value has the wrong type or is out of range; the default counts")
                                : QStringLiteral("no key has this name, so it has no effect"),
                        keys);
    }
    for (const QString& line : model.remarks()) {
        diagnosis.wrong(line, QStringLiteral("no key has this name, so it has no effect"), keys);
    }
    examineInstallation(model.getMqtt()->getGlobal()->getInstallation_id(), diagnosis);
    examineAccess(*model.getMqtt(), diagnosis);
    if (diagnosis.faults() == before) {
        const connection_t connection = connectionOf(model);
        diagnosis.fine(QStringLiteral("installation %1, broker %2").arg(connection.installationId, connection.name()));
    }
    return true;
}

} // namespace tools
} // namespace comunication
