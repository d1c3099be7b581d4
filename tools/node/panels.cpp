// SPDX-License-Identifier: MIT
// flotrofobul panel: panels that follow the master and say what they see, for those who write servers.
#include "connection/connection.h"
#include "node/host.h"

#include <flotrofobul/protoclient_t.h>

#include <QtCore/QUuid>

#include <memory>

namespace comunication {
namespace tools {

namespace {

constexpr int mostPanels = 1000;

const char description[] = "Panels that follow the master and say what they see, for those who write servers. They end "
                           "in order with Ctrl-C.\n\n"
                           "Exit codes: 0 ended by a signal; 2 wrong usage, or a configuration that cannot be read.";

void follow(protoclient_t& panel, const teller_t& teller)
{
    const QString id = panel.getClientId();
    const auto tell = [=](const char* event, const QString& what, QJsonObject details) {
        details.insert(QStringLiteral("node"), id);
        teller.tell(event, QStringLiteral("%1: %2").arg(id, what), details);
    };
    teller.follow(panel);
    QObject::connect(&panel, &protobase_t::on_Presentation, &panel,
                     [=](const QString& master, const QString&, bool there) {
                         tell("master", master + QLatin1String(there ? " is my master" : " is lost"),
                              {{QStringLiteral("master"), master}, {QStringLiteral("here"), there}});
                     });
    const auto see = [=](const QJsonObject& packet) {
        tell("status",
             QStringLiteral("%1 from %2 to %3: %4")
                 .arg(packet[u"topic"].toString(), packet[u"sender"].toString(), packet[u"destination"].toString(),
                      shownPayload(packet[u"payload"])),
             packet);
    };
    QObject::connect(&panel, &protobase_t::onDatabasePersistentStatus, &panel, see);
    QObject::connect(&panel, &protobase_t::onDatabaseRealtimeStatus, &panel, see);
    QObject::connect(&panel, &protobase_t::onDatabasePresenceSimulationStatus, &panel, see);
    QObject::connect(&panel, &protobase_t::on_Unknown, &panel, [=](const QString& topic, const QJsonValue& payload) {
        tell("other", QStringLiteral("%1: %2").arg(topic, shownPayload(payload)),
             {{QStringLiteral("topic"), topic}, {QStringLiteral("payload"), payload}});
    });
    QObject::connect(&panel, &protobase_t::onBridgeConnectionEvent, &panel,
                     [=](const QString&, const QString& bridge, const QString& state) {
                         const bool up = state == QLatin1String("1");
                         tell("bridge",
                              QStringLiteral("bridge %1 is %2").arg(bridge, QLatin1String(up ? "up" : "down")),
                              {{QStringLiteral("bridge"), bridge}, {QStringLiteral("up"), up}});
                     });
}

} // namespace

int runPanel(const QStringList& arguments)
{
    QCommandLineParser options;
    options.setApplicationDescription(QString::fromLatin1(description));
    const QCommandLineOption count(QStringLiteral("count"), QStringLiteral("How many panels; default 1."),
                                   QStringLiteral("N"), QStringLiteral("1"));
    const QCommandLineOption id(
        QStringLiteral("id"),
        QStringLiteral("Client id; of several panels -1, -2 and so on follow it. Default: one of its own."),
        QStringLiteral("ID"));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Say one JSON object a line."));
    options.addOptions({count, id, json});
    addConnectionOptions(options);
    if (const auto code = readOptions(options, arguments)) {
        return *code;
    }
    bool isNumber = false;
    const int number = options.value(count).toInt(&isNumber);
    if (!isNumber || number < 1 || number > mostPanels) {
        complain(QStringLiteral("--count takes 1 to %1.").arg(mostPanels));
        return misused;
    }
    const auto connection = readConnection(options, installation_t::needed);
    if (!connection) {
        return misused;
    }
    const teller_t teller(options.isSet(json));
    const QString base = options.isSet(id)
                             ? options.value(id)
                             : QStringLiteral("panel-") + QUuid::createUuid().toString(QUuid::Id128).left(8);
    std::vector<std::unique_ptr<protoclient_t>> panels;
    std::vector<protobase_t*> nodes;
    for (int i = 1; i <= number; ++i) {
        const QString own = number == 1 ? base : QStringLiteral("%1-%2").arg(base).arg(i);
        panels.push_back(std::make_unique<protoclient_t>(QCoreApplication::applicationVersion(),
                                                         connection->configuration, own, false));
        nodes.push_back(panels.back().get());
        follow(*panels.back(), teller);
        panels.back()->connect();
    }
    return runUntilSignal(nodes, teller);
}

} // namespace tools
} // namespace comunication
