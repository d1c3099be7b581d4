// SPDX-License-Identifier: MIT
// Connecting and disconnecting, and what the broker client reports about the link.
#include <flotrofobul/protobase_t.h>

#include <flotrofobul/advice.h>
#include <flotrofobul/messages/messages.h>
#include <flotrofobul/platform/config/mosquittocnf.h>
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>
#include <flotrofobul/protobase_shared.h>
#include <flotrofobul/utility/system_t.h>

#include <QtCore/QTimer>

#include <algorithm>
#include <array>
#include <chrono>

namespace comunication {

using namespace ::utility::logs;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/protobase_t";
constexpr std::chrono::seconds leastKeepalive(10);
constexpr std::chrono::milliseconds lastWillHeadStart(1000);

const QString statisticsTopic = QStringLiteral("$SYS/#");

// What a result code of the link means: MQTT 3.1.1 CONNACK return codes 0 to 5, libmosquitto's 7 (connection
// lost) and 14 (system error). The last text stands for all other codes.
struct link_text_t {
    int rc;
    const char* text;
};

using link_texts_t = std::array<link_text_t, 9>;
constexpr int anyOther = -1;

constexpr link_texts_t connectionTexts{{
    {0, ") Connected to broker to "},
    {1, ") Connection Refused: unacceptable protocol version to "},
    {2, ") Connection Refused: identifier rejected to "},
    {3, ") Connection Refused: broker unavailable to "},
    {4, ") Connection Refused: bad user name or password to "},
    {5, ") Connection Refused: not authorised "},
    {7, ") Connection lost connection "},
    {14, ") Connection internal error (maby broker is down or wrong port) "},
    {anyOther, ") Connection Refused: unknown reason "},
}};

constexpr link_texts_t disconnectionTexts{{
    {0, ") Disconnected to broker to "},
    {1, ") Disconnection Refused: unacceptable protocol version to "},
    {2, ") Disconnection Refused: identifier rejected to "},
    {3, ") Disconnection Refused: broker unavailable to "},
    {4, ") Disconnection Refused: bad user name or password to "},
    {5, ") Disconnection Refused: not authorised "},
    {7, ") Disconnection lost connection "},
    {14, ") Disconnection internal error (maby broker is down or wrong port) "},
    {anyOther, ") Disconnection Refused: unknown reason "},
}};

QString addressOf(const config::mosquittocnf& configuration)
{
    const auto* const global = configuration.getMqtt()->getGlobal();
    return global->getHost() + u':' + QString::number(global->getPort());
}

void logLink(const link_texts_t& texts, int rc, const QString& address, const char* function)
{
    const auto* const known =
        std::find_if(texts.begin(), texts.end() - 1, [rc](const link_text_t& text) { return text.rc == rc; });
    FLOTROFOBUL_LOG_AS(rc == 0 ? info : error, u'(' + QString::number(rc) + QLatin1String(known->text) + address,
                       function);
}

// The level at which a line of libmosquitto's is logged. 10 is intended: libmosquitto's debug level, 16, is logged as
// information like everything else.
LogLevel levelOf(int mosquittoLevel)
{
    switch (mosquittoLevel) {
    case 4: return warning; // MOSQ_LOG_WARNING
    case 8: return error;   // MOSQ_LOG_ERR
    case 10: return detail;
    default: return info;
    }
}

} // namespace

int protobase_t::connect(const QString& _clientid, bool async)
try {
    advice->release();
    const auto* const global = configuration->getMqtt()->getGlobal();
    system->setBrokerip(global->getHost());
    const QString formerId = system->getClientid();
    if (!_clientid.isEmpty()) {
        system->setClientId(_clientid);
        FLOTROFOBUL_LOG(info, "Set mosquitto client id: "_l1 + _clientid);
    }
    advice->clientId(system->getClientid(), system->getHostname());
    if (!system->checkNetwork()) {
        FLOTROFOBUL_LOG(warning, QStringLiteral("Network is down"));
    }
    int prepared = 0;
    // A broker client stays in the thread in which it was made, also when its engine has moved on.
    if (client == nullptr || client->thread() != thread()) {
        FLOTROFOBUL_LOG(info, QStringLiteral("Init comunication"));
        prepared = init_comunication();
    } else if (system->getClientid() != formerId) {
        // The new id, and the last will that carries it, take effect with the next session.
        client->setClientId(system->getClientid());
        init_lastWillMessage();
    }
    if (closeDelay->isActive()) {
        // The other nodes have been sent the last will already; only a new session tells them that this one is back.
        endSession();
    }
    FLOTROFOBUL_LOG(detail,
                    "Try to connect: "_l1 + addressOf(*configuration) + " with id: "_l1 + system->getClientid());
    const std::chrono::seconds wanted(configuration->getMqtt()->getConnect()->getKeepalive());
    const auto keepalive = static_cast<int>(std::max(wanted, leastKeepalive).count());
    const int rc = async ? shared_t::brokerClient(*this).connect_async(global->getHost(), global->getPort(), keepalive)
                         : shared_t::brokerClient(*this).connect_sync(global->getHost(), global->getPort(), keepalive);
    logLink(connectionTexts, rc, addressOf(*configuration), __func__);
    return rc | prepared;
} catch (...) {
    FLOTROFOBUL_LOG(fatal, exceptionText("Handling exception "_l1, "Handling generic exception. Exit"_l1));
    return -1;
}

int protobase_t::disconnection(bool _sendLastWill)
try {
    FLOTROFOBUL_LOG(detail, QStringLiteral("Try to disconnect"));
    auto& broker = shared_t::brokerClient(*this);
    if (!_sendLastWill) {
        return endSession();
    }
    if (!broker.getConnected()) {
        // There is nobody to be told; an attempt that goes on would only bring the node back to the others.
        endSession();
        return 0;
    }
    if (const auto will = broker.getWill(); !will.topic.isEmpty()) {
        int mid = 0;
        broker.publish(&mid, will.topic, will.payload, will.qos, will.retain);
        lastWills.append(mid);
    }
    if (!closeDelay->isActive()) {
        closeDelay->start(lastWillHeadStart);
    }
    return 0;
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
    return -1;
}

// A last will that has not got through by now must not: sent first in the next session, it would tell a falsehood.
int protobase_t::endSession()
{
    closeDelay->stop();
    for (const int mid : qAsConst(lastWills)) {
        client->withdraw(mid);
    }
    lastWills.clear();
    return client->disconnect_sync();
}

bool protobase_t::connected()
{
    const bool up = getConnected();
    FLOTROFOBUL_LOG(info, "Check connection"_l1 + (up ? " true"_l1 : " false"_l1));
    return up;
}

bool protobase_t::getConnected() const
{
    return client != nullptr && client->getConnected();
}

QString protobase_t::linkProblem() const
{
    return client != nullptr ? client->linkProblem() : QString();
}

void protobase_t::setStatusbroker(bool on)
try {
    statusbroker = on;
    // Subscribing needs a live link and an empty registry; unsubscribing needs any registered mid, but no link: a
    // subscription that is lost with its link is made again at the next connection anyway.
    if (on) {
        if (connected() && messages->getMidSubsciption(statisticsTopic) < 0) {
            subscribe(statisticsTopic, utility::exactly_once);
        }
    } else if (messages->getMidSubsciption(statisticsTopic) >= 1) {
        unsubscribe(statisticsTopic);
    }
    FLOTROFOBUL_LOG(detail, "Set status broker to: "_l1 + (on ? "true"_l1 : "false"_l1));
} catch (...) {
    FLOTROFOBUL_LOG(fatal, QStringLiteral("Handling generic exception. Exit"));
}

void protobase_t::setMosquittoLog(bool on)
{
    logging = on;
    configuration->getMqtt()->getGlobal()->setLogging(on);
    if (client != nullptr) {
        client->setLogging(on);
    }
}

void protobase_t::on_connect(int rc)
{
    guarded(__func__, logSource, [&] { onConnect(rc); });
}

// The role is served before the host, because the host may delete the engine in any of its slots.

void protobase_t::on_connect_with_flags(int rc, int flags)
{
    const QPointer<protobase_t> alive(this);
    const char* const function = __func__;
    guarded(function, logSource, [&] { logLink(connectionTexts, rc, addressOf(*configuration), function); });
    if (rc == 0) {
        advice->connected();
    }
    guarded(function, logSource, [&] { onConnect_with_flags(rc, flags); });
    if (alive) {
        guarded(function, logSource, [&] { Q_EMIT onBrokerConnection(rc, flags); });
    }
}

void protobase_t::on_disconnect(int rc)
{
    const QPointer<protobase_t> alive(this);
    const char* const function = __func__;
    guarded(function, logSource, [&] { logLink(disconnectionTexts, rc, addressOf(*configuration), function); });
    guarded(function, logSource, [&] { forgetRequests(); });
    if (closeDelay->isActive() && !getConnected()) {
        // Lost within the second of its last will: nothing may bring this node back to the others.
        guarded(function, logSource, [&] { endSession(); });
    }
    guarded(function, logSource, [&] { onDisconnect(rc); });
    if (alive) {
        guarded(function, logSource, [&] { Q_EMIT onBrokerDisconnection(rc); });
    }
}

// Requests made after the end that is reported only now belong to the next session: they stay.
void protobase_t::forgetRequests()
{
    auto& publishing = *messages->getPublications();
    auto& subscribing = *messages->getSubscriptions();
    QMap<int, message::classpublish*> laterPublications;
    QMap<int, message::classsubscribe*> laterSubscriptions;
    for (const int mid : laterRequests.keys()) {
        if (publishing.contains(mid)) {
            laterPublications[mid] = publishing.take(mid);
        }
        if (subscribing.contains(mid)) {
            laterSubscriptions[mid] = subscribing.take(mid);
        }
    }
    messages->reset();
    publishing = laterPublications;
    subscribing = laterSubscriptions;
    for (auto count = laterRequests.begin(); count != laterRequests.end();) {
        count = --*count == 0 ? laterRequests.erase(count) : std::next(count);
    }
}

void protobase_t::on_log(int level, QString str)
{
    const char* const function = __func__;
    guarded(function, logSource, [&] {
        if (logging) {
            FLOTROFOBUL_LOG_AS(levelOf(level), str, function);
        }
    });
    guarded(function, logSource, [&] { onLog(level, str); });
}

void protobase_t::on_error()
{
    FLOTROFOBUL_LOG(error, QStringLiteral("An error occured in mosquitto"));
    guarded(__func__, logSource, [&] { onError(); });
}

} // namespace comunication
