// SPDX-License-Identifier: MIT
#include "node/host.h"

#include "connection/ending.h"
#include "watch/packet_lines.h"

#include <flotrofobul/platform/secrets.h>

#include <QtCore/QTimer>

#include <chrono>
#include <csignal>
#include <cstdio>

namespace comunication {
namespace tools {

using namespace std::chrono_literals;

QString shownPayload(const QJsonValue& payload)
{
    return QString::fromUtf8(
        harmlessJson(QJsonDocument(withoutSecrets(payload).toObject()).toJson(QJsonDocument::Compact)));
}

void teller_t::tell(const char* event, const QString& words, QJsonObject details) const
{
    if (json) {
        details.insert(QStringLiteral("event"), QLatin1String(event));
        say(shownPayload(details));
    } else {
        say(harmless(words));
    }
    static bool isHeard = true;
    if (isHeard && std::ferror(stdout) != 0) { // whoever read has had enough, as "head" does
        isHeard = false;
        // So the nodes take leave; whoever waits for the signal may not be there yet.
        QTimer::singleShot(0, qApp, [] { std::raise(SIGTERM); });
    }
}

void teller_t::follow(protobase_t& node) const
{
    const teller_t teller = *this;
    const QString id = node.getClientId();
    const auto tell = [=](const char* event, const QString& what, QJsonObject details = {}) {
        details.insert(QStringLiteral("node"), id);
        teller.tell(event, QStringLiteral("%1: %2").arg(id, what), details);
    };
    QObject::connect(&node, &protobase_t::onLinkProblem, &node, [=](const QString& reason) {
        if (!reason.isEmpty()) {
            tell("problem", reason, {{QStringLiteral("reason"), reason}});
        }
    });
    QObject::connect(&node, &protobase_t::onBrokerConnection, &node, [=](int rc) {
        if (rc == 0) {
            tell("connected", QStringLiteral("connected to the broker"));
        }
    });
}

int runUntilSignal(const std::vector<protobase_t*>& nodes, const teller_t& teller)
{
    ending_t ending(0ms);
    int linked = 0;
    QObject::connect(&ending, &ending_t::asked, &ending, [&] {
        teller.tell("ending", QStringLiteral("ending"));
        for (protobase_t* const node : nodes) {
            if (node->getConnected()) {
                ++linked;
                QObject::connect(node, &protobase_t::onBrokerDisconnection, &ending, [&] {
                    if (--linked == 0) {
                        QCoreApplication::quit();
                    }
                });
            }
            node->disconnection(true);
        }
        QTimer::singleShot(linked > 0 ? 2s : 0s, qApp, &QCoreApplication::quit);
    });
    return QCoreApplication::exec();
}

} // namespace tools
} // namespace comunication
