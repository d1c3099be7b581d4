// SPDX-License-Identifier: MIT
// flotrofobul serve: a server that answers from a file, for those who write panels.
#include "connection/connection.h"
#include "node/answers.h"
#include "node/host.h"

#include <flotrofobul/define/define.h>
#include <flotrofobul/house/keeper.h>
#include <flotrofobul/protoserver_t.h>

#include <QtCore/QFile>

#include <memory>

namespace comunication {
namespace tools {

namespace {

const char description[] =
    "A server that answers requests from a file, for those who write panels. It says each request, and ends in order\n"
    "with Ctrl-C. With a section \"house\" in the configuration, the companion that keeps one master is with it.\n\n"
    "The file of answers is a JSON object: for each request what is answered, for example\n\n"
    "  { \"persistent\": { \"payload\": { \"kitchen\": 21.5 }, \"to\": \"all\", \"retain\": true },\n"
    "    \"realtime/attic\": { \"payload\": { \"degrees\": 19 } },\n"
    "    \"command\": null }\n\n"
    "A request is named by its kind (persistent, realtime, presence, command), with further levels of its topic if\n"
    "needed, or by a topic that begins with request/. The nearest name is taken: \"realtime\" is also for\n"
    "\"realtime/cellar\".\n"
    "  payload  object that is answered\n"
    "  to       \"asker\" (default) or \"all\"\n"
    "  retain   true: the broker keeps it for panels that come later; default false\n"
    "  topic    of the answer; default that of the request with status instead of request. A command has none.\n"
    "  null     instead of all this: the request is said and not answered\n\n"
    "Exit codes: 0 ended by a signal; 1 the file of answers is refused; 2 wrong usage, or a file that cannot be read.";

QString firstFault(const QString& path, QJsonObject* json)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return QStringLiteral("%1 cannot be read: %2").arg(path, file.errorString());
    }
    QJsonParseError outcome;
    const QByteArray bytes = file.readAll();
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &outcome);
    if (!document.isObject()) {
        return QStringLiteral("%1 is no JSON object: %2, line %3")
            .arg(path, outcome.errorString())
            .arg(bytes.left(outcome.offset).count('\n') + 1);
    }
    *json = document.object();
    return QString();
}

/// The server with what it says and answers.
class responder_t : public QObject {
public:
    responder_t(protoserver_t& givenServer, const answers_t& givenAnswers, const teller_t& givenTeller)
        : server(givenServer), answers(givenAnswers), teller(givenTeller)
    {
        connect(&server, &protoserver_t::onConnection, this,
                [this] { server.init_subscription(utility::subscribe_topics); });
        connect(&server, &protoserver_t::onRequestPersistentRequest, this, &responder_t::answer);
        connect(&server, &protoserver_t::onRequestRealtimeRequest, this, &responder_t::answer);
        connect(&server, &protoserver_t::onRequestPresenceSimulationRequest, this, &responder_t::answer);
        connect(&server, &protoserver_t::onRequestCmd, this, &responder_t::answer);
        connect(&server, &protobase_t::on_Unknown, this, &responder_t::hearUnknown);
        connect(&server, &protobase_t::on_Presentation, this,
                [this](const QString& sender, const QString&, bool there) {
                    teller.tell("presence", sender + QLatin1String(there ? " is here" : " is gone"),
                                {{QStringLiteral("sender"), sender}, {QStringLiteral("here"), there}});
                });
        connect(&server, &protoserver_t::onClientReady, this, [this](const QJsonObject& packet) {
            const bool ready = packet[u"payload"].toString() == QLatin1String("1");
            teller.tell("ready", packet[u"sender"].toString() + QLatin1String(ready ? " is ready" : " is not ready"),
                        {{QStringLiteral("sender"), packet[u"sender"]}, {QStringLiteral("ready"), ready}});
        });
    }

private:
    void answer(const QJsonObject& request)
    {
        // A server that follows another hears that one's requests as well.
        if (request[u"destination"].toString() != server.getClientId()) {
            return;
        }
        const QString topic = request[u"topic"].toString();
        const auto found = answers.find(topic);
        const bool answered = found && !found->silent;
        const QString to = answered && !found->toAll ? request[u"sender"].toString() : QStringLiteral("all");
        const QString status = answered && found->topic.isEmpty() ? statusTopic(topic)
                               : answered                         ? found->topic
                                                                  : QString();
        const QString outcome = answered ? QStringLiteral("answered to %1 on %2").arg(to, status)
                                : found  ? QStringLiteral("not answered")
                                         : QStringLiteral("the file has no answer for it");
        teller.tell("request",
                    QStringLiteral("%1 asks %2 %3: %4")
                        .arg(request[u"sender"].toString(), topic, shownPayload(request[u"payload"]), outcome),
                    {{QStringLiteral("sender"), request[u"sender"]},
                     {QStringLiteral("topic"), topic},
                     {QStringLiteral("payload"), request[u"payload"]},
                     {QStringLiteral("answered"), answered}});
        if (answered) {
            server.eventPublish({{QStringLiteral("topic"), status},
                                 {QStringLiteral("destination"), to},
                                 {QStringLiteral("payload"), found->payload}},
                                utility::exactly_once, found->retain);
        }
    }

    // Requests of other kinds reach a host in this way, and what is no request is said as well.
    void hearUnknown(const QString& topic, const QJsonValue& value)
    {
        const QStringList levels = topic.mid(topic.indexOf(LOCAL_PREFIX + u'/')).split(u'/');
        QJsonObject packet = value.toObject();
        packet.insert(QStringLiteral("sender"), levels.value(2));
        packet.insert(QStringLiteral("destination"), levels.value(3));
        packet.insert(QStringLiteral("topic"), levels.mid(4).join(u'/'));
        if (levels.value(4) == QLatin1String("request")) {
            answer(packet);
        } else if (levels.value(3) == server.getClientId()) {
            teller.tell("packet",
                        QStringLiteral("%1 says %2 %3")
                            .arg(levels[2], packet[u"topic"].toString(), shownPayload(packet[u"payload"])),
                        packet);
        }
    }

    protoserver_t& server;
    const answers_t& answers;
    const teller_t& teller;
};

} // namespace

int runServe(const QStringList& arguments)
{
    QCommandLineParser options;
    options.setApplicationDescription(QString::fromLatin1(description));
    const QCommandLineOption file(QStringLiteral("answers"), QStringLiteral("What is answered (JSON)."),
                                  QStringLiteral("FILE"));
    const QCommandLineOption id(QStringLiteral("id"), QStringLiteral("Client id; default: server@ and the host name."),
                                QStringLiteral("ID"));
    const QCommandLineOption follower(QStringLiteral("no-master"),
                                      QStringLiteral("Do not take the role of the master."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Say one JSON object a line."));
    options.addOptions({file, id, follower, json});
    addConnectionOptions(options);
    if (const auto code = readOptions(options, arguments)) {
        return *code;
    }
    if (!options.isSet(file)) {
        complain(QStringLiteral("What is to be answered? flotrofobul serve --answers FILE, see --help."));
        return misused;
    }
    QJsonObject content;
    const QString unreadable = firstFault(options.value(file), &content);
    if (!unreadable.isEmpty()) {
        complain(unreadable);
        return misused;
    }
    QStringList faults;
    const answers_t answers = answers_t::read(content, faults);
    if (!faults.isEmpty()) {
        complain(QStringLiteral("%1 is refused:\n  %2").arg(options.value(file), faults.join(QStringLiteral("\n  "))));
        return somethingFound;
    }
    const auto connection = readConnection(options, installation_t::needed);
    if (!connection) {
        return misused;
    }

    const teller_t teller(options.isSet(json));
    protoserver_t server(QCoreApplication::applicationVersion(), connection->configuration, !options.isSet(follower),
                         options.value(id), false);
    std::unique_ptr<house::keeper_t> keeper;
    if (connection->configuration.contains(QStringLiteral("house"))) {
        keeper = std::make_unique<house::keeper_t>(server);
        QObject::connect(keeper.get(), &house::keeper_t::masterChanged, &server,
                         [&](const QString& master, const QString& reason) {
                             teller.tell("master",
                                         QStringLiteral("master is %1: %2")
                                             .arg(master.isEmpty() ? QStringLiteral("nobody") : master, reason),
                                         {{QStringLiteral("master"), master}, {QStringLiteral("reason"), reason}});
                         });
    }
    const responder_t responder(server, answers, teller);
    teller.follow(server);
    teller.tell("start",
                QStringLiteral("%1 answers %2 request%3")
                    .arg(server.getClientId())
                    .arg(answers.size())
                    .arg(QLatin1String(answers.size() == 1 ? "" : "s")),
                {{QStringLiteral("node"), server.getClientId()}});
    server.connect();
    return runUntilSignal({&server}, teller);
}

} // namespace tools
} // namespace comunication
