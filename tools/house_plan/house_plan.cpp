// SPDX-License-Identifier: MIT
// The rules that a house has to keep. Reading a description is in reading.cpp.
#include "house_plan/house_plan.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QStringList>
#include <QtNetwork/QHostAddress>

#include <algorithm>

namespace comunication {
namespace tools {

namespace {

bool isPlain(const QString& text)
{
    static const QRegularExpression plain(QStringLiteral("\\A[A-Za-z0-9_]+\\z"));
    return plain.match(text).hasMatch();
}

// A value goes into a line of a configuration as it stands.
QString flawOfText(const QString& text)
{
    if (std::any_of(text.begin(), text.end(), [](QChar c) { return !c.isPrint(); })) {
        return QStringLiteral("has a line break or another control character, which a configuration cannot hold");
    }
    if (text != text.trimmed()) {
        return QStringLiteral("begins or ends with a blank, which mosquitto would leave out");
    }
    return QString();
}

class inspection_t {
public:
    explicit inspection_t(const house_plan_t& givenPlan) : plan(givenPlan) {}

    QVector<fault_t> run()
    {
        static const QRegularExpression lettersAndDigits(QStringLiteral("\\A[A-Za-z0-9]+\\z"));
        if (plan.installationId.isEmpty()) {
            add("installation_id", "is missing: without it no node recognises a packet");
        } else if (!lettersAndDigits.match(plan.installationId).hasMatch()) {
            add("installation_id",
                "may have letters and digits only: anything else changes which topics are recognised");
        }
        if (plan.lanes != 1 && plan.lanes != 2) {
            add("lanes", "has to be 1 or 2");
        }
        inspectHub();
        if (plan.boxes.isEmpty()) {
            add("boxes", "has no box: a house has at least one");
        }
        for (int i = 0; i < plan.boxes.size(); ++i) {
            inspectBox(i);
        }
        if (plan.cloud) {
            inspectCloud(*plan.cloud);
        }
        for (int i = 0; i < plan.joints.size(); ++i) {
            inspectJoint(i);
        }
        return faults;
    }

private:
    void add(const QString& place, const QString& reason) { faults << fault_t{place, reason}; }
    void add(const char* place, const char* reason) { add(QLatin1String(place), QLatin1String(reason)); }

    // The server in words, as far as it is known.
    void inspectHub()
    {
        if (plan.shape == shape_t::star && plan.hub.isEmpty()) {
            add("hub", "is missing: a star needs the server of the box in its middle");
        } else if (plan.shape == shape_t::star && plan.indexOf(plan.hub) < 0) {
            add(QStringLiteral("hub"), noBox(plan.hub));
        } else if (plan.shape != shape_t::star && !plan.hub.isEmpty()) {
            add("hub", "is of use in a star only: set \"shape\": \"star\", or leave it out");
        }
    }

    static QString noBox(const QString& server)
    {
        return QStringLiteral("names \"%1\", and no box has that server").arg(server);
    }

    void inspectAccess(const QString& place, const access_t& broker)
    {
        const QString at = place + QLatin1Char('.');
        if (broker.host.isEmpty()) {
            add(at + QStringLiteral("host"), QStringLiteral("is missing: where is this broker?"));
        }
        inspectHost(at + QStringLiteral("host"), broker.host);
        inspectPort(at + QStringLiteral("port"), broker.port);
        const std::pair<QString, QString> texts[] = {{QStringLiteral("username"), broker.username},
                                                     {QStringLiteral("password"), broker.password},
                                                     {QStringLiteral("ca_file"), broker.caFile}};
        for (const auto& [key, text] : texts) {
            const QString flaw = flawOfText(text);
            if (!flaw.isEmpty()) {
                add(at + key, flaw);
            }
        }
        if (broker.username.isEmpty() && !broker.password.isEmpty()) {
            add(at + QStringLiteral("username"), QStringLiteral("is missing: there is a password for it"));
        }
        if (broker.tlsEnable && broker.caFile.isEmpty()) {
            add(at + QStringLiteral("ca_file"),
                QStringLiteral("is missing: with TLS a bridge has to know whose certificates it trusts"));
        } else if (!broker.tlsEnable && (!broker.caFile.isEmpty() || broker.tlsInsecure)) {
            add(at + QStringLiteral("tls_enable"),
                QStringLiteral("is not true, so the link would be in clear text in spite of %1")
                    .arg(broker.caFile.isEmpty() ? QStringLiteral("tls_insecure") : QStringLiteral("ca_file")));
        }
    }

    void inspectHost(const QString& place, const QString& host)
    {
        if (host.contains(QLatin1Char(':')) && QHostAddress(host).protocol() != QAbstractSocket::IPv6Protocol) {
            add(place, QStringLiteral("has a colon: the port has a key of its own, and an IPv6 address, as mosquitto "
                                      "dials it, stands here without brackets"));
        } else if (std::any_of(host.begin(), host.end(), [](QChar c) { return !c.isPrint() || c.isSpace(); })) {
            add(place, QStringLiteral("has a blank or a control character, which no name of a host has"));
        }
    }

    void inspectPort(const QString& place, int port)
    {
        if (port < 1 || port > 65535) {
            add(place, QStringLiteral("has to be from 1 to 65535"));
        }
    }

    static QString addressOf(const access_t& broker)
    {
        return broker.host.toLower() + QLatin1Char(':') + QString::number(broker.port);
    }

    void inspectBox(int index)
    {
        const box_t& box = plan.boxes[index];
        const QString place = QStringLiteral("boxes[%1]").arg(index);
        const QString server = place + QStringLiteral(".server");
        if (box.server.isEmpty()) {
            add(server, QStringLiteral("is missing: what follows \"tarnel-server-\" in the client id of its server"));
        } else if (box.server.contains(QLatin1Char('-'))) {
            add(server,
                QStringLiteral("has a hyphen, which would shift the pieces of the bridge's name: give what follows "
                               "\"tarnel-server-\", without a hyphen"));
        } else if (!isPlain(box.server)) {
            add(server, QStringLiteral("may have letters, digits and underscores only"));
        }
        inspectAccess(place, box.broker);
        for (int other = 0; other < index; ++other) {
            const QString there = QStringLiteral("boxes[%1]").arg(other);
            if (!box.server.isEmpty() && plan.boxes[other].server == box.server) {
                add(server, QStringLiteral("is \"%1\" like that of %2: two servers with one id throw each other out")
                                .arg(box.server, there));
            }
            if (!box.broker.host.isEmpty() && addressOf(plan.boxes[other].broker) == addressOf(box.broker)) {
                add(place + QStringLiteral(".host"),
                    QStringLiteral("is, with its port, the broker of %1: each box has a broker of its own").arg(there));
            }
            if (box.master && plan.boxes[other].master) {
                add(place + QStringLiteral(".master"),
                    QStringLiteral("makes a second default master beside %1: both would stay master").arg(there));
                break;
            }
        }
    }

    void inspectCloud(const cloud_t& cloud)
    {
        const QString key = QStringLiteral("cloud.bridge_key");
        inspectAccess(QStringLiteral("cloud"), cloud.broker);
        for (int i = 0; i < plan.boxes.size() && !cloud.broker.host.isEmpty(); ++i) {
            if (addressOf(plan.boxes[i].broker) == addressOf(cloud.broker)) {
                add(QStringLiteral("cloud.host"),
                    QStringLiteral("is, with its port, the broker of boxes[%1]: the cloud broker is another one")
                        .arg(i));
            }
        }
        if (cloud.lanes < 0 || cloud.lanes > 2) {
            add("cloud.lanes", "has to be 1 or 2");
        }
        const QStringList pieces = cloud.bridgeKey.split(QLatin1Char('-'));
        if (cloud.bridgeKey.isEmpty()) {
            add(key, QStringLiteral("is missing: by this key phones know the bridge"));
        } else if (!isPlain(QString(cloud.bridgeKey).remove(QLatin1Char('-')))) {
            add(key, QStringLiteral("may have letters, digits, underscores and hyphens only"));
        } else if (pieces.size() > 3 && (plan.indexOf(pieces[2]) >= 0 || plan.indexOf(pieces[3]) >= 0)) {
            add(key, QStringLiteral("has pieces that read like a bridge between servers \"%1\" and \"%2\"")
                         .arg(pieces[2], pieces[3]));
        }
        if (!cloud.box.isEmpty() && plan.indexOf(cloud.box) < 0) {
            add(QStringLiteral("cloud.box"), noBox(cloud.box));
        } else if (plan.cloudIndex() < 0 && plan.boxes.size() > 1) {
            add("cloud.box", "is missing: exactly one box dials the cloud broker");
        }
    }

    void inspectJoint(int index)
    {
        const joint_t& joint = plan.joints[index];
        const QString place = QStringLiteral("bridges[%1]").arg(index);
        bool known = true;
        const std::pair<QString, QString> ends[] = {{QStringLiteral(".from"), joint.from},
                                                    {QStringLiteral(".to"), joint.to}};
        for (const auto& [end, server] : ends) {
            if (plan.indexOf(server) < 0) {
                add(place + end, server.isEmpty() ? QStringLiteral("is missing") : noBox(server));
                known = false;
            }
        }
        inspectHost(place + QStringLiteral(".host"), joint.host);
        if (joint.port != 0) {
            inspectPort(place + QStringLiteral(".port"), joint.port);
        }
        if (!known) {
            return;
        }
        if (joint.from == joint.to) {
            add(place, QStringLiteral("joins box %1 with itself").arg(joint.from));
        }
        if (plan.shape == shape_t::star && joint.from != plan.hub) {
            add(place + QStringLiteral(".from"), QStringLiteral("is not the hub: in a star the hub dials"));
        }
        for (int other = 0; other < index; ++other) {
            const joint_t& earlier = plan.joints[other];
            const bool same = earlier.from == joint.from && earlier.to == joint.to;
            const bool opposite = earlier.from == joint.to && earlier.to == joint.from;
            if (same || (opposite && plan.shape != shape_t::outOnly)) {
                add(place, QStringLiteral("is a second bridge for boxes %1 and %2 beside bridges[%3]: everything would "
                                          "arrive twice")
                               .arg(joint.from, joint.to)
                               .arg(other));
            }
        }
        inspectNames(place, joint);
    }

    void inspectNames(const QString& place, const joint_t& joint)
    {
        const QString remote = place + QStringLiteral(".remote_clientid");
        const QString local = place + QStringLiteral(".local_clientid");
        if (joint.remoteClientId.isEmpty() && joint.localClientId.isEmpty()) {
            return;
        }
        if (joint.remoteClientId.isEmpty() || joint.localClientId.isEmpty()) {
            add(joint.remoteClientId.isEmpty() ? remote : local,
                QStringLiteral("is missing: mosquitto would take the name of the host for it, whose hyphens shift the "
                               "pieces; give both names or none"));
            return;
        }
        const std::pair<QString, QString> names[] = {{remote, joint.remoteClientId}, {local, joint.localClientId}};
        for (const auto& [at, text] : names) {
            const QStringList pieces = text.split(QLatin1Char('-'));
            const bool plain = std::all_of(pieces.begin(), pieces.end(), isPlain);
            if (!plain || pieces.size() != 4 || pieces[2] != joint.from || pieces[3] != joint.to) {
                add(at,
                    QStringLiteral("is \"%1\", but nodes read the servers at the ends from pieces three and four of "
                                   "four: <word>-<word>-%2-%3")
                        .arg(text, joint.from, joint.to));
            }
        }
    }

    const house_plan_t& plan;
    QVector<fault_t> faults;
};

} // namespace

int house_plan_t::indexOf(const QString& server) const
{
    for (int i = 0; i < boxes.size(); ++i) {
        if (boxes[i].server == server) {
            return i;
        }
    }
    return -1;
}

int house_plan_t::masterIndex() const
{
    for (int i = 0; i < boxes.size(); ++i) {
        if (boxes[i].master) {
            return i;
        }
    }
    return boxes.isEmpty() ? -1 : 0;
}

int house_plan_t::cloudIndex() const
{
    if (!cloud) {
        return -1;
    }
    if (cloud->box.isEmpty()) {
        return boxes.size() == 1 ? 0 : shape == shape_t::star ? indexOf(hub) : -1;
    }
    return indexOf(cloud->box);
}

QVector<fault_t> faultsOf(const house_plan_t& plan)
{
    return inspection_t(plan).run();
}

} // namespace tools
} // namespace comunication
