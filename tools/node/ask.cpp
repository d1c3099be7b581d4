// SPDX-License-Identifier: MIT
// flotrofobul ask and send: a client that finds the master, says one thing and prints what is answered.
#include "connection/connection.h"
#include "connection/listener.h"
#include "node/answers.h"
#include "node/host.h"
#include "watch/packet_lines.h"

#include <flotrofobul/define/define.h>
#include <flotrofobul/define/topic_t.h>
#include <flotrofobul/messages/messages.h>
#include <flotrofobul/protoclient_t.h>

#include <QtCore/QSet>
#include <QtCore/QTimer>

#include <chrono>

namespace comunication {
namespace tools {

namespace {

/// Exit codes beside those of all subcommands.
enum outcome_t {
    noBroker = 3,
    refused = 4,
    noMaster = 5,
    noAnswer = 6,
};

const char codes[] =
    "Exit codes: 0 answered (or taken by the broker, with --no-answer); 2 wrong usage; 3 no broker; 4 the broker\n"
    "refuses; 5 no master; 6 no answer within the time.";

struct wish_t {
    QString topic;
    QJsonObject payload;
    QString to;              ///< empty: the master
    QString answersBegin;    ///< with which topics that are an answer begin
    bool everything = false; ///< until the time is over
    bool noAnswer = false;
    bool json = false;
    std::chrono::milliseconds time{5000};
};

/// The client. It ends the event loop with the exit code.
class asker_t : public protoclient_t {
public:
    asker_t(const QJsonObject& givenConfiguration, const wish_t& givenWish)
        : protoclient_t(QCoreApplication::applicationVersion(), givenConfiguration, strangerId(), false),
          wish(givenWish)
    {
        QObject::connect(this, &protobase_t::onLinkProblem, this, [this](const QString& reason) {
            if (!reason.isEmpty() && !answerOfBroker) {
                finish(noBroker, reason);
            }
        });
        QObject::connect(this, &protobase_t::onBrokerConnection, this, [this](int rc) {
            answerOfBroker = true;
            if (rc != 0) {
                finish(refused, linkProblem());
            } else if (!this->wish.to.isEmpty()) {
                listenTo(this->wish.to);
                speak(this->wish.to);
            }
        });
        QObject::connect(this, &protobase_t::onBrokerDisconnection, this, [this] {
            if (answerOfBroker && !leaving) {
                finish(noBroker, QStringLiteral("the link to the broker has ended"));
            }
        });
        QObject::connect(this, &protobase_t::on_Presentation, this,
                         [this](const QString& master, const QString&, bool there) {
                             if (there && !spoken) {
                                 speak(master);
                             }
                         });
        QTimer::singleShot(wish.time, this, &asker_t::timeIsOver);
    }

protected:
    // The host's signals do not tell a retained status, which is older than the question.
    void onMessage(int mid, utility::topic_t topic, QJsonValue value, int qos, bool retain) override
    {
        const QString kind = topic.getValue();
        if (kind == commandOfPresentation) {
            heard.insert(topic.getSender());
        }
        protoclient_t::onMessage(mid, topic, value, qos, retain);
        if (spoken && !retain && topic.getSender() == asked && kind.startsWith(wish.answersBegin)) {
            print(topic, value);
        }
    }
    void onPublish(int mid) override
    {
        protoclient_t::onPublish(mid);
        if (spoken && wish.noAnswer && messages->getPublications()->isEmpty()) {
            finish(allFine);
        }
    }

private:
    void listenTo(const QString& server)
    {
        for (const QString& bridge : {FORWARD_PREFIX, REMOTE_PREFIX, CLOUD_PREFIX_1}) {
            for (const QString& destination : {getClientId(), QStringLiteral("all")}) {
                subscribe(QStringLiteral("%1/%2/%3/%4/%5/status/#")
                              .arg(bridge, LOCAL_PREFIX, INSTALLATIONID, server, destination),
                          utility::exactly_once);
            }
        }
    }
    void speak(const QString& server)
    {
        asked = server;
        spoken = true;
        protobase_t::publish({{QStringLiteral("topic"), wish.topic},
                              {QStringLiteral("destination"), server},
                              {QStringLiteral("payload"), wish.payload}},
                             utility::exactly_once, false);
    }
    void print(const utility::topic_t& topic, const QJsonValue& value)
    {
        const QJsonValue payload = value.toObject().value(QStringLiteral("payload"));
        if (wish.json) {
            say(shownPayload(QJsonObject{{QStringLiteral("sender"), topic.getSender()},
                                         {QStringLiteral("destination"), topic.getDestination()},
                                         {QStringLiteral("topic"), topic.getValue()},
                                         {QStringLiteral("payload"), payload}}));
        } else {
            say(harmless(QStringLiteral("%1 from %2 to %3: %4")
                             .arg(topic.getValue(), topic.getSender(), topic.getDestination(), shownPayload(payload))));
        }
        answered = true;
        if (!wish.everything) {
            finish(allFine);
        }
    }
    void timeIsOver()
    {
        if (!answerOfBroker) {
            finish(noBroker, QStringLiteral("the broker has not answered within the time"));
        } else if (!spoken) {
            QStringList servers(heard.begin(), heard.end());
            servers.sort();
            finish(noMaster, servers.isEmpty() ? QStringLiteral("no master: no server has presented itself")
                                               : QStringLiteral("no master: heard of %1, which %2 not master")
                                                     .arg(servers.join(QStringLiteral(", ")),
                                                          QLatin1String(servers.size() == 1 ? "is" : "are")));
        } else {
            finish(answered ? static_cast<int>(allFine) : noAnswer,
                   answered ? QString()
                            : QStringLiteral("%1 has not answered %2 within the time").arg(asked, wish.topic));
        }
    }
    void finish(int code, const QString& words = QString())
    {
        if (leaving) {
            return;
        }
        leaving = true;
        if (!words.isEmpty()) {
            complain(harmless(words));
        }
        // The others are told; what has been said already goes out before that.
        QObject::connect(this, &protobase_t::onBrokerDisconnection, qApp, [=] { QCoreApplication::exit(code); });
        if (!getConnected()) {
            QTimer::singleShot(0, qApp, [=] { QCoreApplication::exit(code); });
        }
        disconnection(true);
    }

    const wish_t wish;
    const QString commandOfPresentation = getCommandTopic(presentation[QStringLiteral("topic")].toString());
    QSet<QString> heard;
    QString asked;
    bool answerOfBroker = false;
    bool spoken = false;
    bool answered = false;
    bool leaving = false;
};

bool isObject(const QString& text, QJsonObject* object)
{
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    *object = document.object();
    return document.isObject();
}

int run(const QStringList& arguments, const char* description, bool asks)
{
    QCommandLineParser options;
    options.setApplicationDescription(QString::fromLatin1(description).replace(QLatin1String("%1"), kindWords()) +
                                      QLatin1String(codes));
    options.addPositionalArgument(arguments.value(0), QString());
    options.clearPositionalArguments();
    if (asks) {
        options.addPositionalArgument(QStringLiteral("KIND"), QStringLiteral("What is asked for: ") + kindWords(),
                                      QStringLiteral("ask KIND"));
        options.addPositionalArgument(QStringLiteral("JSON"), QStringLiteral("Payload, an object; default {}."),
                                      QStringLiteral("[JSON]"));
    } else {
        options.addPositionalArgument(QStringLiteral("TOPIC"), QStringLiteral("Levels after the destination."),
                                      QStringLiteral("send TOPIC"));
        options.addPositionalArgument(QStringLiteral("JSON"), QStringLiteral("Payload, an object."));
    }
    const QCommandLineOption to(QStringLiteral("to"), QStringLiteral("Client id of another node than the master."),
                                QStringLiteral("ID"));
    const QCommandLineOption time(QStringLiteral("time"), QStringLiteral("How long all may take; default 5."),
                                  QStringLiteral("seconds"), QStringLiteral("5"));
    const QCommandLineOption everything(
        QStringLiteral("all"), QStringLiteral("Print all answers until the time is over, not only the first."));
    const QCommandLineOption noWaiting(QStringLiteral("no-answer"),
                                       QStringLiteral("End when the broker has taken the packet."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print answers as JSON, one a line."));
    options.addOptions({to, time, everything, noWaiting, json});
    addConnectionOptions(options);
    if (const auto code = readOptions(options, arguments)) {
        return *code;
    }
    const QStringList words = options.positionalArguments();
    bool isNumber = false;
    const double seconds = options.value(time).toDouble(&isNumber);
    wish_t wish;
    QString fault;
    if (words.isEmpty() || words.size() > 2 || (!asks && words.size() < 2)) {
        fault = asks ? QStringLiteral("ask takes a kind and perhaps a payload.")
                     : QStringLiteral("send takes a topic and a payload.");
    } else if (words.size() == 2 && !isObject(words[1], &wish.payload)) {
        fault = QStringLiteral("The payload has to be a JSON object, and is %1").arg(words[1]);
    } else if (asks && requestTopic(words[0]) == words[0] && !words[0].startsWith(QLatin1String("request/"))) {
        fault = QStringLiteral("There is no kind \"%1\"; there are %2.").arg(words[0], kindWords());
    } else if (!isNumber || seconds <= 0 || seconds > 3600) {
        fault = QStringLiteral("--time takes up to 3600 seconds.");
    }
    if (!fault.isEmpty()) {
        complain(fault + QStringLiteral(" See --help."));
        return misused;
    }
    const auto connection = readConnection(options, installation_t::needed);
    if (!connection) {
        return misused;
    }
    wish.topic = asks ? requestTopic(words[0]) : words[0];
    wish.to = options.value(to);
    wish.answersBegin = statusTopic(wish.topic);
    if (wish.answersBegin.isEmpty()) {
        wish.answersBegin = QStringLiteral("status/");
    }
    wish.everything = options.isSet(everything);
    wish.noAnswer = options.isSet(noWaiting);
    wish.json = options.isSet(json);
    wish.time = std::chrono::milliseconds(static_cast<int>(seconds * 1000));

    asker_t asker(connection->configuration, wish);
    if (asker.connect() != 0) {
        complain(asker.linkProblem());
        return noBroker;
    }
    return QCoreApplication::exec();
}

} // namespace

int runAsk(const QStringList& arguments)
{
    return run(arguments,
               "Asks the master and prints its answer: the status that it publishes then, to the asker or to all.\n"
               "The kinds are %1; further levels may follow, as in \"realtime/attic\", and a topic that begins with\n"
               "request/ is taken as it is.\n\n",
               true);
}

int runSend(const QStringList& arguments)
{
    return run(
        arguments,
        "Sends a packet to the master, or to another node, and prints the status that is answered. The topic is\n"
        "what follows the destination, for example command/light/on or request/DB/realtime.\n\n",
        false);
}

} // namespace tools
} // namespace comunication
