// SPDX-License-Identifier: MIT
// A host that knows the installed headers only: all of them, and one engine of each role.
#include <flotrofobul/define/define.h>
#include <flotrofobul/define/topic_t.h>
#include <flotrofobul/house/keeper.h>
#include <flotrofobul/messages/messages.h>
#include <flotrofobul/platform/config/mosquittocnf.h>
#include <flotrofobul/platform/jsonserializer/qjsonserializer.h>
#include <flotrofobul/platform/logs/classlogs.h>
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>
#include <flotrofobul/protobase_t.h>
#include <flotrofobul/protoclient_t.h>
#include <flotrofobul/protoserver_t.h>
#include <flotrofobul/utility/statusbroker.h>
#include <flotrofobul/utility/system_t.h>

#include <QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QJsonObject configuration{{"mqtt", QJsonObject{{"global", QJsonObject{{"installation_id", "house1"}}}}}};
    comunication::protoserver_t server("1.0.0", configuration, true, "server-1", false);
    const comunication::house::keeper_t keeper(server);
    comunication::protoclient_t client("1.0.0", configuration, "panel-1", false);

    bool ok = false;
    const comunication::topic_t topic("local/house1/server-1/all/status/DB/persistent", &ok);
    return ok && topic.getSender() == "server-1" && client.getVersion() == server.getVersion() && !keeper.isMaster()
               ? 0
               : 1;
}
