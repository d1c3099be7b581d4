// SPDX-License-Identifier: MIT
#include "doctor/judgement.h"

#include <QtNetwork/QHostAddress>

namespace comunication {
namespace tools {

namespace {

const QString nameStep = QStringLiteral("name");
const QString tcpStep = QStringLiteral("TCP");
const QString tlsStep = QStringLiteral("TLS");
const QString credentialsStep = QStringLiteral("credentials");
const QString clientIdStep = QStringLiteral("client id");
const QString brokerStep = QStringLiteral("broker");

constexpr int lostCode = 7; // of libmosquitto
constexpr int tlsCode = 8;
constexpr int networkCode = 14;
constexpr int nameCode = 15;

// What helps against a problem that the library names with these words.
struct remedy_t {
    const char* words;
    const char* remedy;
};

constexpr remedy_t tlsRemedies[] = {
    {"does not speak TLS", "take the port of the broker that has TLS (often 8883), or set mqtt.security.tls_enable to "
                           "false"},
    {"is this a port without TLS", "take the port of the broker that has TLS (often 8883), or set "
                                   "mqtt.security.tls_enable to false"},
    {"has expired", "put a new certificate at the broker; if it is new already, look at the clock of this machine"},
    {"not yet valid", "look at the clock of this machine"},
    {"is for", "set mqtt.global.host to one of these names, or give the broker a certificate for the name in use"},
    {"was not signed", "mqtt.security.ca_file has to hold the certificate of the authority that signed the broker's"},
    {"", "mqtt.security.ca_file has to name a file with the trusted certificates (PEM) that this user may read"},
};

// The library's words without the address and the step that stand before them.
QString reasonOf(const QString& problem)
{
    const QString mark = QStringLiteral(" failed: ");
    const int at = problem.indexOf(mark);
    const QString reason = at < 0 ? problem : problem.mid(at + mark.size());
    return reason.startsWith(QLatin1String("TLS: ")) ? reason.mid(5) : reason;
}

void judgeTls(const QString& reason, diagnosis_t& diagnosis)
{
    for (const remedy_t& one : tlsRemedies) {
        if (reason.contains(QLatin1String(one.words))) {
            diagnosis.wrong(reason,
                            QStringLiteral("the handshake has failed there, and nothing was sent in clear text"),
                            QLatin1String(one.remedy));
            return;
        }
    }
}

void judgeRefusal(const observations_t& seen, const connection_t& connection, diagnosis_t& diagnosis)
{
    const QString reason = reasonOf(seen.problem);
    const QString user = connection.username;
    if (seen.answer == 2) {
        diagnosis.begin(clientIdStep);
        diagnosis.wrong(QStringLiteral("the broker refuses the client id %1").arg(seen.id),
                        QStringLiteral("it has answered with code 2"),
                        QStringLiteral("take a client id that it allows: --id tries one"));
    } else if (seen.answer == 4 || seen.answer == 5) {
        diagnosis.begin(credentialsStep);
        if (user.isEmpty()) {
            diagnosis.wrong(QStringLiteral("the broker wants a user name and a password"),
                            QStringLiteral("%1, and mqtt.connect.username is empty").arg(reason),
                            QStringLiteral("set mqtt.connect.username and password to what the broker knows"));
        } else {
            diagnosis.wrong(
                QStringLiteral("the broker does not let in the user %1").arg(user),
                QStringLiteral("%1; brokers do not tell which of user name, password and client id is wrong")
                    .arg(reason),
                QStringLiteral("at the broker: is the user in the password file (mosquitto_passwd), and was "
                               "mosquitto reloaded after it was written? Does it allow only some client "
                               "ids (clientid_prefixes)? --id tries one"));
        }
    } else {
        diagnosis.begin(brokerStep);
        diagnosis.wrong(reason, QStringLiteral("it has answered with code %1").arg(seen.answer),
                        QStringLiteral("look into the broker's log"));
    }
}

void judgeFailure(const observations_t& seen, const connection_t& connection, diagnosis_t& diagnosis)
{
    const QString reason = reasonOf(seen.problem);
    const QString address = connection.name();
    switch (seen.lossCode) {
    case nameCode:
        diagnosis.begin(nameStep);
        diagnosis.wrong(
            QStringLiteral("the name %1 leads nowhere").arg(connection.host), reason,
            QStringLiteral("is mqtt.global.host spelled right, and does this machine have a name server that "
                           "knows it? An address works without"));
        return;
    case tlsCode:
        diagnosis.begin(tlsStep);
        judgeTls(reason, diagnosis);
        return;
    case lostCode:
        if (!connection.tlsEnable) {
            diagnosis.begin(tlsStep);
            diagnosis.wrong(
                QStringLiteral("the broker at %1 does not understand an open link").arg(address), reason,
                QStringLiteral("a port with TLS: set mqtt.security.tls_enable and ca_file, or take the port "
                               "without (often 1883)"));
            return;
        }
        break;
    case networkCode:
        if (!reason.contains(QLatin1String("is it a broker"))) {
            diagnosis.begin(tcpStep);
            diagnosis.wrong(
                QStringLiteral("nothing answers at %1").arg(address), reason,
                QStringLiteral("does mosquitto run there (systemctl status mosquitto), has it a \"listener\" "
                               "line for others than its own machine, is the port right, and does a firewall "
                               "let it through?"));
            return;
        }
        break;
    default: break;
    }
    diagnosis.begin(brokerStep);
    diagnosis.wrong(QStringLiteral("what answers at %1 does not behave like a broker").arg(address), reason,
                    QStringLiteral("is it the port of mosquitto? If it is, look into its log"));
}

} // namespace

bool judgeLink(const observations_t& seen, const connection_t& connection, diagnosis_t& diagnosis)
{
    if (seen.answer < 0) {
        judgeFailure(seen, connection, diagnosis);
        return false;
    }
    if (QHostAddress(connection.host).isNull()) {
        diagnosis.begin(nameStep);
        diagnosis.fine(connection.host + QStringLiteral(" is found"));
    }
    diagnosis.begin(tcpStep);
    diagnosis.fine(QStringLiteral("a broker answers at ") + connection.name());
    diagnosis.begin(tlsStep);
    if (connection.tlsEnable && connection.tlsInsecure) {
        diagnosis.remark(QStringLiteral("the certificate of the broker may be for any name"),
                         QStringLiteral("mqtt.security.tls_insecure is true"),
                         QStringLiteral("give the broker a certificate for its name, and take this out"));
    } else {
        diagnosis.fine(QLatin1String(connection.tlsEnable ? "on, and the certificate is trusted" : "off"));
    }
    if (seen.answer != 0) {
        judgeRefusal(seen, connection, diagnosis);
        return false;
    }
    diagnosis.begin(credentialsStep);
    diagnosis.fine(connection.username.isEmpty() ? QStringLiteral("none are asked for")
                                                 : QStringLiteral("the user %1 is let in").arg(connection.username));
    if (seen.lost && seen.problem.contains(QLatin1String("does not speak QoS 2"))) {
        diagnosis.begin(brokerStep);
        diagnosis.wrong(QStringLiteral("the broker does not speak QoS 2, which all nodes use"),
                        QStringLiteral("it has acknowledged such a packet as one of QoS 1"),
                        QStringLiteral("take another broker: docs/brokers.md names those that were tried"));
        return false;
    }
    diagnosis.begin(clientIdStep);
    if (seen.lost) {
        diagnosis.wrong(seen.ownId ? QStringLiteral("the broker has ended the link while we listened")
                                   : QStringLiteral("somebody else has the client id %1").arg(seen.id),
                        seen.ownId ? reasonOf(seen.problem)
                                   : QStringLiteral("the broker has ended the link soon after it had let us in, as it "
                                                    "does when a second client comes with the same id"),
                        seen.ownId ? QStringLiteral("look into the broker's log")
                                   : QStringLiteral("give every node an id of its own; the broker's log names the "
                                                    "addresses of both"));
        return false;
    }
    diagnosis.fine(seen.id + QStringLiteral(" is accepted"));
    return true;
}

} // namespace tools
} // namespace comunication
