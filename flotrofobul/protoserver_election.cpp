// SPDX-License-Identifier: MIT
// Who is master: nobody votes and nothing is compared, the last announcement wins.
#include <flotrofobul/protoserver_t.h>

#include <flotrofobul/protobase_shared.h>
#include <flotrofobul/referee.h>
#include <flotrofobul/utility/system_t.h>

namespace comunication {

using namespace ::utility::logs;
using utility::destination_publish_server_t;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/protoserver_t";

} // namespace

bool protoserver_t::isMaster()
{
    const QString master = system->getMasterId();
    if (master == system->getClientid()) {
        FLOTROFOBUL_LOG(detail, "I'm master -"_l1 + master + u'-');
        return true;
    }
    FLOTROFOBUL_LOG(info, master.trimmed().isEmpty() ? QStringLiteral("Master is not set!")
                                                     : QString("Master id is -"_l1 + master + u'-'));
    return false;
}

void protoserver_t::setMaster()
try {
    FLOTROFOBUL_LOG(info, QStringLiteral("I'm default master"));
    if (!connected()) {
        defaultMaster = true;
        return;
    }
    shared_t::storeMaster(*this, system->getClientid(), shared_t::ownRecord(*this));
    becomeMaster(__func__);
    if (referee != nullptr) {
        referee->claimed();
    }
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
}

void protoserver_t::becomeMaster(const char* function)
{
    subscription_presentation(service_t::client, utility::subscribe_topics);
    FLOTROFOBUL_LOG_AS(warning, QStringLiteral("Publish that i'm a master"), function);
    publish_presentation(destination_publish_server_t::all.ToString());
}

bool protoserver_t::processMasterElection(topic_t topic, const QJsonObject& packet)
{
    if (!isElection(topic)) {
        return false;
    }
    const std::optional<QString> named = electedMaster(packet, logSource);
    if (!named) {
        return true;
    }
    const QString& id = *named;
    const QString old = system->getMasterId();
    FLOTROFOBUL_LOG(warning, "Master election "_l1 + old + " - "_l1 + id);
    if (id == old) {
        FLOTROFOBUL_LOG(info, "Ignore same masterid: "_l1 + old);
        return true;
    }
    FLOTROFOBUL_LOG(info, "New masterid: "_l1 + id + " old: "_l1 + old);
    if (old == system->getClientid()) {
        publish_undomaster(); // while the record still names this server
    }
    shared_t::storeMaster(*this, id, packet);
    if (isMaster()) {
        becomeMaster(__func__);
    } else if (!old.isEmpty()) {
        // Even if this server was never the master: unsubscribing an unknown topic does no harm.
        FLOTROFOBUL_LOG(info, "Unsubscribe all message from client and bridge old master: -"_l1 + old + u'-');
        subscription_presentation(service_t::client, utility::unsubscribe_topics);
    }
    return true;
}

void protoserver_t::publish_undomaster()
try {
    const QString topic = FORWARD_PREFIX + u'/' +
                          resolvedTopic(*this, masterelection, system->getClientid(),
                                        destination_publish_server_t::all_clients.ToString());
    FLOTROFOBUL_LOG(info, QStringLiteral("I advise only client who are no longer the master"));
    FLOTROFOBUL_LOG(detail, topic);
    publish(topic, QJsonObject{{QStringLiteral("masterid"), system->getClientid()}}, qosOf(masterelection), false);
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
}

} // namespace comunication
