// SPDX-License-Identifier: MIT
// What the pieces of the engine cost, each by itself and without a broker.
#include "bench_host.h"

#include <flotrofobul/define/define.h>
#include <flotrofobul/messages/messages.h>
#include <flotrofobul/platform/jsonserializer/qjsonserializer.h>
#include <flotrofobul/platform/logs/log_line.h>
#include <flotrofobul/protoclient_t.h>
#include <flotrofobul/protoserver_t.h>
#include <flotrofobul/utility/statusbroker.h>
#include <flotrofobul/utility/system_t.h>

#include <QRegExp>
#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>

#include <benchmark/benchmark.h>

namespace {

using namespace comunication;

constexpr const char logSource[] = "bench";

const QString statusTopic = QStringLiteral("forward-bridge/local/1234/tarnel-server-1/all/status/DB/realtime");
const QString requestTopic =
    QStringLiteral("forward-bridge/local/1234/client@panel/tarnel-server-1/request/DB/persistent");
const QString clientPresentation =
    QStringLiteral("forward-bridge/local/1234/client@panel/own_server/connection/presentation");
const QString serverPresentation =
    QStringLiteral("forward-bridge/local/1234/tarnel-server-1/client@panel/connection/presentation");
const QString foreignTopic = QStringLiteral("zigbee2mqtt/living-room/lamp/set/brightness");

// A packet as a server publishes it.
QJsonObject reading()
{
    return {{QStringLiteral("payload"), benchReading(7)}};
}

QString text(const QJsonObject& value)
{
    return QString::fromUtf8(QJsonDocument(QJsonObject{{QStringLiteral("d"), value}}).toJson(QJsonDocument::Compact));
}

class open_client_t : public protoclient_t {
public:
    open_client_t() : protoclient_t(QStringLiteral("1"), benchConfiguration(), QStringLiteral("client@panel"), false) {}
    using protoclient_t::on_message;
};

class open_server_t : public protoserver_t {
public:
    open_server_t()
        : protoserver_t(QStringLiteral("1"), benchConfiguration(), true, QStringLiteral("tarnel-server-1"), false)
    {}
    using protoserver_t::on_message;
};

QString presentationOf(const QString& id, const service_t& role)
{
    system_t node(QStringLiteral("1"), role, id);
    QJsonSerializer serializer;
    QJsonObject packet = serializer.serialize<system_t*>(&node);
    packet[QStringLiteral("connected")] = true;
    return text(packet);
}

// Logging as a host may have it: on, with the default level and sink, whose lines Qt drops here as it does on a system
// without a console; or off.
enum class logging_t { info, off };

void setLogging(logging_t logging)
{
    using namespace ::utility::logs;
    classlogs::getInstance()->setLevel(logging == logging_t::info ? info : fatal - 1);
}

void topicParse(benchmark::State& state)
{
    comunication::utility::topic_t::setInstallationid(QStringLiteral("1234"));
    bool ok = false;
    for (auto _ : state) {
        const comunication::utility::topic_t topic(statusTopic, &ok);
        benchmark::DoNotOptimize(topic.getValue());
    }
    if (!ok) {
        state.SkipWithError("not parsed");
    }
}
BENCHMARK(topicParse);

void topicForeign(benchmark::State& state)
{
    comunication::utility::topic_t::setInstallationid(QStringLiteral("1234"));
    setLogging(logging_t::off);
    bool ok = true;
    for (auto _ : state) {
        benchmark::DoNotOptimize(comunication::utility::topic_t(foreignTopic, &ok));
    }
    if (ok) {
        state.SkipWithError("parsed");
    }
}
BENCHMARK(topicForeign);

void topicByExpression(benchmark::State& state)
{
    comunication::utility::topic_t::setInstallationid(QStringLiteral("1234"));
    QRegExp expression(comunication::utility::topic_t::tmp_regex_allowed_topic_plain);
    for (auto _ : state) {
        benchmark::DoNotOptimize(expression.exactMatch(statusTopic));
    }
}
BENCHMARK(topicByExpression);

void encode(benchmark::State& state)
{
    setLogging(logging_t::off);
    open_client_t engine;
    engine.setEncoding(state.range(0) != 0);
    const QJsonObject value = reading();
    for (auto _ : state) {
        benchmark::DoNotOptimize(engine.Encode(QJsonObject{{QStringLiteral("d"), value}}));
    }
}
BENCHMARK(encode)->Arg(0)->Arg(1);

void encodeByQt(benchmark::State& state)
{
    const QJsonObject value = reading();
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            QJsonDocument(QJsonObject{{QStringLiteral("d"), value}}).toJson(QJsonDocument::Compact));
    }
}
BENCHMARK(encodeByQt);

template <typename Engine>
void receive(benchmark::State& state, const QString& topic, const QString& payload, logging_t logging)
{
    setLogging(logging);
    Engine engine;
    int emitted = 0;
    const auto count = [&emitted] { ++emitted; };
    QObject::connect(&engine, &protobase_t::onDatabaseRealtimeStatus, &engine, count);
    QObject::connect(&engine, &protobase_t::on_Presentation, &engine, count);
    QObject::connect(&engine, &protobase_t::on_Unknown, &engine, count);
    if constexpr (std::is_same_v<Engine, open_server_t>) {
        QObject::connect(&engine, &protoserver_t::onRequestPersistentRequest, &engine, count);
    }
    for (auto _ : state) {
        engine.on_message(1, topic, payload, payload.size(), 2, false);
    }
    state.counters["signals"] = emitted > 0 ? 1 : 0;
    setLogging(logging_t::off);
}

void receiveStatus(benchmark::State& state)
{
    receive<open_client_t>(state, statusTopic, text(reading()), static_cast<logging_t>(state.range(0)));
}
BENCHMARK(receiveStatus)->ArgName("log")->Arg(0)->Arg(1);

void receiveRequest(benchmark::State& state)
{
    receive<open_server_t>(state, requestTopic, text(reading()), static_cast<logging_t>(state.range(0)));
}
BENCHMARK(receiveRequest)->ArgName("log")->Arg(0)->Arg(1);

void receivePresentation(benchmark::State& state)
{
    receive<open_client_t>(state, serverPresentation,
                           presentationOf(QStringLiteral("tarnel-server-1"), service_t::server),
                           static_cast<logging_t>(state.range(0)));
}
BENCHMARK(receivePresentation)->ArgName("log")->Arg(0)->Arg(1);

void receiveForeign(benchmark::State& state)
{
    receive<open_client_t>(state, foreignTopic, text(reading()), static_cast<logging_t>(state.range(0)));
}
BENCHMARK(receiveForeign)->ArgName("log")->Arg(0)->Arg(1);

// What a presentation costs a server that already knows many clients.
void presentationAmongClients(benchmark::State& state)
{
    setLogging(logging_t::off);
    open_server_t server;
    for (int i = 0; i < state.range(0); ++i) {
        const QString id = QStringLiteral("client@panel%1").arg(i);
        server.on_message(1, QString(clientPresentation).replace(QStringLiteral("client@panel"), id),
                          presentationOf(id, service_t::client), 0, 2, false);
    }
    const QString payload = presentationOf(QStringLiteral("client@panel"), service_t::client);
    for (auto _ : state) {
        server.on_message(1, clientPresentation, payload, payload.size(), 2, false);
    }
    if (server.getClients().size() != state.range(0) + 1) {
        state.SkipWithError("clients are missing");
    }
}
BENCHMARK(presentationAmongClients)->Arg(1)->Arg(100)->Arg(1000);

void registry(benchmark::State& state)
{
    message::classmessages messages;
    const QString payload = text(reading());
    for (int mid = 1; mid <= 100; ++mid) {
        messages.addSubscription(mid, statusTopic, comunication::utility::exactly_once);
    }
    int mid = 0;
    for (auto _ : state) {
        mid = mid % 65535 + 1;
        messages.addPublication(mid, statusTopic, payload, comunication::utility::exactly_once, false);
        messages.getPublications(mid)->setState(comunication::utility::state_acknowledged);
        benchmark::DoNotOptimize(messages.removePublications(mid));
    }
}
BENCHMARK(registry);

void statistics(benchmark::State& state)
{
    setLogging(logging_t::off);
    brokerdiagnostic::diagnostic_broker model;
    model.setStoreBrokerStatistics(true);
    const QString topic = QStringLiteral("$SYS/broker/load/messages/received/5min");
    for (auto _ : state) {
        model.updateMessage(topic, QStringLiteral("17.25"));
    }
}
BENCHMARK(statistics);

void recordToJson(benchmark::State& state)
{
    system_t node(QStringLiteral("1"), service_t::server, QStringLiteral(" "));
    QJsonSerializer serializer;
    for (auto _ : state) {
        benchmark::DoNotOptimize(serializer.serialize<system_t*>(&node));
    }
}
BENCHMARK(recordToJson);

void recordFromJson(benchmark::State& state)
{
    system_t node(QStringLiteral("1"), service_t::server, QStringLiteral(" "));
    QJsonSerializer serializer;
    const QJsonObject packet = serializer.serialize<system_t*>(&node);
    for (auto _ : state) {
        delete serializer.deserialize<system_t*>(packet);
    }
}
BENCHMARK(recordFromJson);

void disabledLine(benchmark::State& state)
{
    setLogging(logging_t::info);
    int built = 0;
    const auto line = [&built] {
        ++built;
        return statusTopic;
    };
    for (auto _ : state) {
        FLOTROFOBUL_LOG(::utility::logs::detail, line());
        benchmark::ClobberMemory();
    }
    if (built != 0) {
        state.SkipWithError("the text was built");
    }
}
BENCHMARK(disabledLine);

void dropLine(QtMsgType /*type*/, const QMessageLogContext& /*context*/, const QString& /*message*/)
{}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler(dropLine);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
