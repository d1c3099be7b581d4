// SPDX-License-Identifier: MIT
// A server: it owns the data of the house, answers the panels, and reports who is there.
#include "common/host.h"
#include "house_data.h"

#include <flotrofobul/define/define.h>
#include <flotrofobul/protoserver_t.h>

#include <QtCore/QRandomGenerator>

using comunication::protoserver_t;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser options;
    readOptions(options, {{QStringLiteral("data"), QStringLiteral("SQLite file; default house.sqlite."),
                           QStringLiteral("file"), QStringLiteral("house.sqlite")},
                          {QStringLiteral("master"), QStringLiteral("Be the master of the installation.")}});
    house_data_t data;
    const QString problem = data.open(options.value(QStringLiteral("data")));
    if (!problem.isEmpty()) {
        qCritical("Cannot open the data: %s", qUtf8Printable(problem));
        return 1;
    }

    // Encoding off: it is for consumers that decode, and engines never decode what they receive.
    protoserver_t server(QStringLiteral("1.0.0"), options.positionalArguments().first(),
                         options.isSet(QStringLiteral("master")), options.value(QStringLiteral("id")), false);
    requireConfiguration(server);
    followLink(server);
    endOnSignal(server);

    QObject::connect(&server, &protoserver_t::onConnection, &server,
                     [&] { server.init_subscription(comunication::utility::subscribe_topics); });
    QObject::connect(&server, &protoserver_t::on_Presentation, &server,
                     [](const QString& sender, const QString& destination, bool there) {
                         say(there ? QStringLiteral("%1 presents itself to %2").arg(sender, destination)
                                   : QStringLiteral("%1 is gone").arg(sender));
                     });
    QObject::connect(&server, &protoserver_t::onClientReady, &server, [](const QJsonObject& packet) {
        const bool ready = packet[u"payload"].toString() == QLatin1String("1");
        say(packet[u"sender"].toString() + (ready ? QStringLiteral(" is ready") : QStringLiteral(" is not ready")));
    });

    // A server that follows another may hear that one's requests as well.
    const auto isMine = [&](const QJsonObject& request) {
        return request[u"destination"].toString() == server.getClientId();
    };
    // {"set": {room: degrees}} stores temperatures. Every request is answered to all panels, and the broker keeps the
    // answer for those that come later.
    QObject::connect(&server, &protoserver_t::onRequestPersistentRequest, &server, [&](const QJsonObject& request) {
        if (!isMine(request)) {
            return;
        }
        const QJsonObject wish = request[u"payload"].toObject();
        say(QStringLiteral("%1 asks for the data of the house: %2").arg(request[u"sender"].toString(), compact(wish)));
        if (!data.set(wish[u"set"].toObject())) {
            say(QStringLiteral("the wish could not be stored"));
        }
        server.eventPublish({{QStringLiteral("topic"), QStringLiteral("status/DB/persistent")},
                             {QStringLiteral("destination"), QStringLiteral("all")},
                             {QStringLiteral("payload"), data.all()}},
                            comunication::utility::exactly_once, comunication::status[u"retain"].toBool());
    });
    // Measured values go only to the panel that asked; they are soon stale, so the broker does not keep them.
    QObject::connect(&server, &protoserver_t::onRequestRealtimeRequest, &server, [&](const QJsonObject& request) {
        if (!isMine(request)) {
            return;
        }
        say(QStringLiteral("%1 asks for measured values").arg(request[u"sender"].toString()));
        const auto degrees = [] { return (180 + QRandomGenerator::global()->bounded(40)) / 10.0; };
        const QJsonObject measured{{QStringLiteral("kitchen"), degrees()}, {QStringLiteral("living_room"), degrees()}};
        server.eventPublish({{QStringLiteral("topic"), QStringLiteral("status/DB/realtime")},
                             {QStringLiteral("destination"), request[u"sender"]},
                             {QStringLiteral("payload"), measured}},
                            comunication::utility::exactly_once, false);
    });

    server.connect();
    return QCoreApplication::exec();
}
