// SPDX-License-Identifier: MIT
// A node of the laboratory: a server or a panel that says what it thinks, one JSON object a line, and obeys words on
// its standard input: "state", "claim", "request NUMBER", "quit".
#include <flotrofobul/define/define.h>
#include <flotrofobul/house/keeper.h>
#include <flotrofobul/platform/logs/classlogs.h>
#include <flotrofobul/protoclient_t.h>
#include <flotrofobul/protoserver_t.h>
#include <flotrofobul/utility/system_t.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>
#include <QtCore/QSocketNotifier>
#include <QtCore/QTextStream>
#include <QtCore/QTimer>

#include <unistd.h>

#include <chrono>
#include <memory>
#include <utility>

using comunication::protobase_t;
using comunication::protoclient_t;
using comunication::protoserver_t;
using comunication::house::keeper_t;

namespace {

void tell(const QJsonObject& event)
{
    QTextStream(stdout) << QString::fromUtf8(QJsonDocument(event).toJson(QJsonDocument::Compact)) << Qt::endl;
}

/// What both roles share. A state is told when it has changed, however often it is looked at.
template <class Role>
class node_t : public Role {
public:
    template <typename... Arguments>
    explicit node_t(Arguments&&... arguments) : Role(std::forward<Arguments>(arguments)...)
    {
        const auto look = [this] { lookAtState(); };
        QObject::connect(this->system.data(), &comunication::utility::system_t::changeMasterIdEvent, this, look);
        QObject::connect(this, &protobase_t::onBrokerConnection, this, look);
        QObject::connect(this, &protobase_t::onBrokerDisconnection, this, look);
    }

    virtual void obey(const QStringList& words)
    {
        if (words[0] == QLatin1String("state")) {
            tell(state());
        } else if (words[0] == QLatin1String("quit")) {
            leave();
        }
    }
    /// Ends the program; the last will tells the other nodes, which takes a second.
    void leave()
    {
        using namespace std::chrono_literals;
        QObject::connect(this, &protobase_t::onBrokerDisconnection, qApp, &QCoreApplication::quit);
        QTimer::singleShot(this->getConnected() ? 2s : 0s, qApp, &QCoreApplication::quit);
        this->disconnection(true);
    }

protected:
    virtual QJsonObject state() const
    {
        return {{QStringLiteral("event"), QStringLiteral("state")},
                {QStringLiteral("linked"), this->getConnected()},
                {QStringLiteral("master"), this->system->getMasterId()}};
    }
    // When the engine has finished what it is doing.
    void lookAtState()
    {
        QTimer::singleShot(0, this, [this] {
            const QJsonObject now = state();
            if (std::exchange(told, now) != now) {
                tell(now);
            }
        });
    }

private:
    QJsonObject told;
};

class server_t : public node_t<protoserver_t> {
public:
    server_t(const QString& givenConfiguration, bool isDefaultMaster, const QString& id)
        : node_t(QStringLiteral("1.0.0"), givenConfiguration, isDefaultMaster, id, false)
    {
        QObject::connect(this, &protoserver_t::onConnection, this,
                         [this] { init_subscription(comunication::utility::subscribe_topics); });
        QObject::connect(this, &protoserver_t::onRequestRealtimeRequest, this, &server_t::answer);
    }

    void obey(const QStringList& words) override
    {
        if (words[0] == QLatin1String("claim")) {
            setMaster();
            lookAtState();
        } else {
            node_t::obey(words);
        }
    }

private:
    // A server that follows hears the requests to its master as well.
    void answer(const QJsonObject& request)
    {
        if (request[u"destination"].toString() != getClientId()) {
            return;
        }
        const QJsonValue number = request[u"payload"].toObject()[u"number"];
        tell({{QStringLiteral("event"), QStringLiteral("asked")},
              {QStringLiteral("by"), request[u"sender"]},
              {QStringLiteral("number"), number}});
        eventPublish({{QStringLiteral("topic"), QStringLiteral("status/DB/realtime")},
                      {QStringLiteral("destination"), request[u"sender"]},
                      {QStringLiteral("payload"), QJsonObject{{QStringLiteral("number"), number}}}},
                     comunication::utility::exactly_once, false);
    }
};

class panel_t : public node_t<protoclient_t> {
public:
    panel_t(const QString& givenConfiguration, const QString& id)
        : node_t(QStringLiteral("1.0.0"), givenConfiguration, id, false)
    {
        QObject::connect(this, &protobase_t::onDatabaseRealtimeStatus, this, [](const QJsonObject& packet) {
            tell({{QStringLiteral("event"), QStringLiteral("answer")},
                  {QStringLiteral("by"), packet[u"sender"]},
                  {QStringLiteral("number"), packet[u"payload"].toObject()[u"number"]}});
        });
        QObject::connect(this, &protobase_t::onMasterIdError, this, [](const QJsonObject& packet) {
            tell({{QStringLiteral("event"), QStringLiteral("refused")},
                  {QStringLiteral("number"), packet[u"payload"].toObject()[u"number"]}});
        });
    }

    void obey(const QStringList& words) override
    {
        if (words[0] == QLatin1String("request")) {
            publish({{QStringLiteral("topic"), QStringLiteral("request/DB/realtime")},
                     {QStringLiteral("payload"), QJsonObject{{QStringLiteral("number"), words.value(1).toInt()}}}});
        } else {
            node_t::obey(words);
        }
    }

protected:
    QJsonObject state() const override
    {
        QJsonObject result = node_t::state();
        result.insert(QStringLiteral("ready"), !listensTo.isEmpty() && listensTo == getServerId());
        return result;
    }
    void onSubscribe(int mid, int count, const int* granted, QString topic) override
    {
        node_t::onSubscribe(mid, count, granted, topic);
        const QString master = getServerId();
        if (!master.isEmpty() && topic.contains(u'/' + master + u'/') && topic.endsWith(QLatin1String("/status/#"))) {
            listensTo = master;
            lookAtState();
        }
    }
    void onDisconnect(int rc) override
    {
        listensTo.clear();
        node_t::onDisconnect(rc);
    }

private:
    QString listensTo; ///< the master whose status the broker has confirmed
};

void tellAbout(const keeper_t& keeper)
{
    const auto say = [](const QString& text) {
        tell({{QStringLiteral("event"), QStringLiteral("keeper")}, {QStringLiteral("text"), text}});
    };
    QObject::connect(&keeper, &keeper_t::masterDoubted, &keeper, [=](const QString& master, const QString& reason) {
        say(QStringLiteral("doubts ") + master + QStringLiteral(": ") + reason);
    });
    QObject::connect(&keeper, &keeper_t::masterBelieved, &keeper, [=](const QString& master) {
        say(QStringLiteral("believes in ") + master + QStringLiteral(" again"));
    });
    QObject::connect(&keeper, &keeper_t::masterChanged, &keeper, [=](const QString& master, const QString& reason) {
        say((master.isEmpty() ? QStringLiteral("knows no master: ")
                              : QStringLiteral("takes ") + master + QStringLiteral(" for the master: ")) +
            reason);
    });
    QObject::connect(&keeper, &keeper_t::twoMasters, &keeper,
                     [=](const QString& other) { say(QStringLiteral("meets another master: ") + other); });
}

template <class Node>
int run(Node& node)
{
    if (!node.isConfigured()) {
        return 2;
    }
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QByteArray waiting;
    QObject::connect(&input, &QSocketNotifier::activated, &node, [&] {
        char bytes[4096];
        const auto length = ::read(STDIN_FILENO, bytes, sizeof bytes);
        if (length <= 0) {
            input.setEnabled(false);
            node.leave();
            return;
        }
        waiting.append(bytes, static_cast<int>(length));
        for (int end = waiting.indexOf('\n'); end >= 0; end = waiting.indexOf('\n')) {
            node.obey(QString::fromUtf8(waiting.left(end)).split(u' '));
            waiting.remove(0, end + 1);
        }
    });
    node.connect();
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral("A node of a house in the laboratory (see flotrofobul-house)."));
    options.addHelpOption();
    options.addPositionalArgument(QStringLiteral("role"), QStringLiteral("server or panel."));
    options.addPositionalArgument(QStringLiteral("configuration"), QStringLiteral("Configuration file (JSON)."));
    options.addOptions({{QStringLiteral("id"), QStringLiteral("Client id."), QStringLiteral("id")},
                        {QStringLiteral("master"), QStringLiteral("Be the default master.")},
                        {QStringLiteral("keeper"), QStringLiteral("A server keeps the house with one master.")},
                        {QStringLiteral("log"), QStringLiteral("Highest level of the log, 0 to 7; default 3."),
                         QStringLiteral("level"), QStringLiteral("3")}});
    options.process(app);
    const QStringList words = options.positionalArguments();
    if (words.size() != 2) {
        options.showHelp(2);
    }
    ::utility::logs::classlogs::getInstance()->setLevel(options.value(QStringLiteral("log")).toInt());
    const QString id = options.value(QStringLiteral("id"));
    if (words[0] == QLatin1String("panel")) {
        panel_t panel(words[1], id);
        return run(panel);
    }
    server_t server(words[1], options.isSet(QStringLiteral("master")), id);
    const auto keeper = options.isSet(QStringLiteral("keeper")) ? std::make_unique<keeper_t>(server) : nullptr;
    if (keeper) {
        tellAbout(*keeper);
    }
    return run(server);
}
