// SPDX-License-Identifier: MIT
// A client: it follows the master, asks it, and shows what arrives.
#include "common/host.h"

#include <flotrofobul/protoclient_t.h>

using comunication::protoclient_t;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser options;
    readOptions(options, {{QStringLiteral("set"), QStringLiteral("Wish, sent when the master is first seen."),
                           QStringLiteral("room=degrees")}});
    QJsonObject wish;
    if (options.isSet(QStringLiteral("set"))) {
        const QString text = options.value(QStringLiteral("set"));
        bool isNumber = false;
        const QJsonObject set{{text.section(u'=', 0, 0), text.section(u'=', 1).toDouble(&isNumber)}};
        if (!isNumber) {
            options.showHelp(2);
        }
        wish.insert(QStringLiteral("set"), set);
    }

    // Encoding off: it is for consumers that decode, and engines never decode what they receive.
    protoclient_t panel(QStringLiteral("1.0.0"), options.positionalArguments().first(),
                        options.value(QStringLiteral("id")), false);
    requireConfiguration(panel);
    followLink(panel);
    endOnSignal(panel);

    const auto ask = [&](const QString& topic, const QJsonObject& payload) {
        panel.publish({{QStringLiteral("topic"), topic}, {QStringLiteral("payload"), payload}});
    };
    const auto show = [](const QJsonObject& packet) {
        say(QStringLiteral("%1 from %2: %3")
                .arg(packet[u"topic"].toString(), packet[u"sender"].toString(), compact(packet[u"payload"])));
    };
    bool seenBefore = false;
    // A panel hears of its master only, so there is nobody else to report here.
    QObject::connect(&panel, &protoclient_t::on_Presentation, &panel,
                     [&](const QString& master, const QString& destination, bool there) {
                         if (!there) {
                             say(QStringLiteral("master %1 is lost").arg(master));
                             return;
                         }
                         say(QStringLiteral("master %1 presents itself to %2").arg(master, destination));
                         say(QStringLiteral("master %1 is %2")
                                 .arg(master, seenBefore ? QStringLiteral("back") : QStringLiteral("adopted")));
                         seenBefore = true;
                         ask(QStringLiteral("request/DB/persistent"), wish);
                         ask(QStringLiteral("request/DB/realtime"), {});
                         wish = {};
                     });
    QObject::connect(&panel, &protoclient_t::onDatabasePersistentStatus, &panel, show);
    QObject::connect(&panel, &protoclient_t::onDatabaseRealtimeStatus, &panel, show);

    panel.connect();
    return QCoreApplication::exec();
}
