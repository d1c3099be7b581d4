// SPDX-License-Identifier: MIT
// Configurations, and payloads of every kind that reach a server and a client. The first byte says what the rest is.
#include <flotrofobul/platform/logs/classlogs.h>
#include <flotrofobul/protoclient_t.h>
#include <flotrofobul/protoserver_t.h>

#include <QtCore/QCoreApplication>

#include <cstdint>
#include <iterator>

namespace {

using comunication::protoclient_t;
using comunication::protoserver_t;

QJsonObject fuzzConfiguration()
{
    return {{QStringLiteral("mqtt"),
             QJsonObject{{QStringLiteral("global"),
                          QJsonObject{{QStringLiteral("installation_id"), QStringLiteral("1234")}}}}}};
}

class open_client_t : public protoclient_t {
public:
    open_client_t() : protoclient_t(QStringLiteral("1"), fuzzConfiguration(), QStringLiteral("client@panel"), false) {}
    using protoclient_t::on_message;
};

class open_server_t : public protoserver_t {
public:
    open_server_t()
        : protoserver_t(QStringLiteral("1"), fuzzConfiguration(), true, QStringLiteral("tarnel-server-1"), false)
    {}
    using protoserver_t::on_message;
};

const char* const topics[] = {
    "forward-bridge/local/1234/tarnel-server-2/all/connection/presentation",
    "remote-bridge/local/1234/tarnel-server-2/all/connection/presentation",
    "forward-bridge/local/1234/client@other/own_server/connection/presentation",
    "local/1234/tarnel-server-2/all_clients/master",
    "forward-bridge/local/1234/tarnel-server-2/all/status/DB/realtime",
    "forward-bridge/local/1234/client@other/tarnel-server-1/request/DB/command",
    "forward-bridge/local/1234/client@other/tarnel-server-1/command/client/ready",
    "$SYS/broker/connection/tarnel-server-1-2/state",
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ::utility::logs::classlogs::getInstance()->setLevel(::utility::logs::fatal - 1);
    if (size == 0) {
        return 0;
    }
    const std::size_t kind = data[0] % (std::size(topics) + 1);
    const QString rest = QString::fromUtf8(reinterpret_cast<const char*>(data) + 1, static_cast<int>(size) - 1);
    if (kind == std::size(topics)) {
        open_client_t client;
        client.readConfigFromJson(client.StringToJsonObject(rest));
        return 0;
    }
    // Long-lived engines, so that an input meets what earlier ones have left.
    static open_client_t client;
    static open_server_t server;
    const QString topic = QLatin1String(topics[kind]);
    client.on_message(1, topic, rest, rest.size(), 2, false);
    server.on_message(1, topic, rest, rest.size(), 2, false);
    return 0;
}
