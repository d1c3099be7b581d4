// SPDX-License-Identifier: MIT
// The house around a panel under test, in one line: a broker, its master, and the link of the panel, which can fail.
#pragma once

#include <flotrofobul/testkit/broker.h>
#include <flotrofobul/testkit/nodes.h>
#include <flotrofobul/testkit/proxy.h>
#include <flotrofobul/testkit/waiting.h>

namespace comunication {
namespace testkit {

/// A broker that runs and a master that is there with the construction. A house that does not come up ends the test,
/// in words. Other nodes are made with houseAt(broker.port()). Lives on the main thread, and needs its event loop.
class small_house_t {
public:
    /// settings: further lines of the broker's configuration, as for broker_t.
    explicit small_house_t(const QString& settings = QString())
        : broker(settings), link(started(broker).port()), master(houseAt(broker.port()))
    {
        if (master.connect() != 0 || !until([this] { return master.getConnected(); })) {
            broker.dump();
            qFatal("the master does not reach its broker: %s", qUtf8Printable(master.linkProblem()));
        }
    }

    /// For the panel under test: it reaches the broker over the link.
    QJsonObject configuration() const { return houseAt(link.port()); }

    /// Connects a panel, and waits until it has its master; false if it does not in time.
    [[nodiscard]] bool takes(protoclient_t& panel) const
    {
        return panel.connect() == 0 && until([&] { return panel.getServerId() == master.getClientId(); });
    }

    broker_t broker;
    proxy_t link; ///< fails when it is told to, and only for the panel under test
    master_t master;

private:
    static broker_t& started(broker_t& broker)
    {
        if (!broker.start()) {
            qFatal("no broker: is mosquitto installed?");
        }
        return broker;
    }
};

} // namespace testkit
} // namespace comunication
