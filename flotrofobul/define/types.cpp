// SPDX-License-Identifier: MIT
// The words of the protocol; the order of their creation determines their indexes.
#include <flotrofobul/define/types.h>

namespace comunication {
namespace utility {

quint32 service_t::maxI = 0;
const service_t service_t::server(QStringLiteral("server"));
const service_t service_t::client(QStringLiteral("client"));

quint32 destination_publish_client_t::maxI = 0;
const destination_publish_client_t destination_publish_client_t::idserver(QStringLiteral("@idserver"));
const destination_publish_client_t destination_publish_client_t::own_server(QStringLiteral("own_server"));

quint32 destination_publish_server_t::maxI = 0;
const destination_publish_server_t destination_publish_server_t::all(QStringLiteral("all"));
const destination_publish_server_t destination_publish_server_t::all_servers(QStringLiteral("all_servers"));
const destination_publish_server_t destination_publish_server_t::all_clients(QStringLiteral("all_clients"));

quint32 destination_subscription_t::maxI = 0;
const destination_subscription_t destination_subscription_t::jolly(QStringLiteral("+"));
const destination_subscription_t destination_subscription_t::multilevel(QStringLiteral("#"));
const destination_subscription_t destination_subscription_t::all(QStringLiteral("all"));
const destination_subscription_t destination_subscription_t::all_clients(QStringLiteral("all_clients"));
const destination_subscription_t destination_subscription_t::idserver(QStringLiteral("@idserver"));
const destination_subscription_t destination_subscription_t::idclient(QStringLiteral("@idclient"));

namespace {

// Slots and properties name these types without their namespace, so queued connections and property writes look them up
// under their short names as well.
template <typename T>
void registerUnder(const char* shortName)
{
    qRegisterMetaType<T>();
    qRegisterMetaType<T>(shortName);
}

[[maybe_unused]] const bool registered = [] {
    registerUnder<qos_t>("qos_t");
    registerUnder<subscribe_t>("subscribe_t");
    registerUnder<state_req_t>("state_req_t");
    return true;
}();

} // namespace

} // namespace utility
} // namespace comunication
