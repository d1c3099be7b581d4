// SPDX-License-Identifier: MIT
#include "node/host.h"

#include <QtCore/QSocketNotifier>
#include <QtCore/QTimer>

#include <sys/signalfd.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>

namespace comunication {
namespace tools {

using namespace std::chrono_literals;

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
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC);
    QSocketNotifier notifier(descriptor, QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &notifier, [&] {
        notifier.setEnabled(false);
        teller.tell("ending", QStringLiteral("ending"));
        // The signal waits to be read: unblocked as it is, it would end the program here.
        signalfd_siginfo info;
        if (read(descriptor, &info, sizeof info) > 0) {
            sigprocmask(SIG_UNBLOCK, &signals, nullptr);
        }
        auto linked = std::make_shared<int>(0);
        for (protobase_t* const node : nodes) {
            if (node->getConnected()) {
                ++*linked;
                QObject::connect(node, &protobase_t::onBrokerDisconnection, qApp, [=] {
                    if (--*linked == 0) {
                        QCoreApplication::quit();
                    }
                });
            }
            node->disconnection(true);
        }
        QTimer::singleShot(*linked > 0 ? 2s : 0s, qApp, &QCoreApplication::quit);
    });
    const int code = QCoreApplication::exec();
    notifier.setEnabled(false);
    close(descriptor);
    return code;
}

} // namespace tools
} // namespace comunication
