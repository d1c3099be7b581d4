// SPDX-License-Identifier: MIT
// Construction, configuration, and setting up the broker client, TLS and the last will.
#include <flotrofobul/protobase_t.h>

#include <flotrofobul/advice.h>
#include <flotrofobul/messages/messages.h>
#include <flotrofobul/platform/config/mosquittocnf.h>
#include <flotrofobul/platform/jsonserializer/json_text.h>
#include <flotrofobul/platform/jsonserializer/qjsonserializer.h>
#include <flotrofobul/platform/mosquittopp/mosquittoqt.h>
#include <flotrofobul/platform/text.h>
#include <flotrofobul/protobase_shared.h>
#include <flotrofobul/utility/statusbroker.h>
#include <flotrofobul/utility/system_t.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QMutex>
#include <QtCore/QSaveFile>
#include <QtCore/QTimer>

#include <mutex>

namespace comunication {

using namespace ::utility::logs;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/protobase_t";

bool isSpecial(const QString& path)
{
    const QFileInfo target(path);
    return target.exists() && !target.isFile();
}

// The new file replaces the old one only when it is complete, so that a panel that loses power while saving still knows
// its installation. If the folder is not writable, the file is overwritten in place. Anything but a regular file (a
// device, a pipe) is written to directly and never replaced.
std::unique_ptr<QFileDevice> writerFor(const QString& path)
{
    if (isSpecial(path)) {
        return std::make_unique<QFile>(path);
    }
    auto file = std::make_unique<QSaveFile>(path);
    file->setDirectWriteFallback(true);
    return file;
}

bool writeWhole(QFileDevice& file, const QByteArray& text)
{
    // The text is buffered, and commit() ignores a failure of its final flush.
    if (file.write(text) != text.size() || !file.flush()) {
        return false;
    }
    auto* const saved = qobject_cast<QSaveFile*>(&file);
    return saved == nullptr || saved->commit();
}

// Whatever fails here, the engine still runs on the defaults.
template <typename Read>
void configure(Read&& read, const config::mosquittocnf& configuration, bool& logging)
try {
    read();
    const auto* const global = configuration.getMqtt()->getGlobal();
    topic_t::setInstallationid(global->getInstallation_id());
    logging = global->getLogging();
} catch (...) {
}

// String-based connections: signals and slots are fixed by their signatures, and so is this order.
void wire(mosquittopp::mosquittoqt* client, protobase_t* engine)
{
    QObject::connect(client, SIGNAL(onConnect(int)), engine, SLOT(on_connect(int)));
    QObject::connect(client, SIGNAL(onConnect_with_flags(int, int)), engine, SLOT(on_connect_with_flags(int, int)));
    QObject::connect(client, SIGNAL(onDisconnect(int)), engine, SLOT(on_disconnect(int)));
    QObject::connect(client, SIGNAL(onPublish(int)), engine, SLOT(on_publish(int)));
    QObject::connect(client, SIGNAL(onSubscribe(int, int, const int*)), engine,
                     SLOT(on_subscribe(int, int, const int*)));
    QObject::connect(client, SIGNAL(onUnsubscribe(int)), engine, SLOT(on_unsubscribe(int)));
    QObject::connect(client, SIGNAL(onLog(int, QString)), engine, SLOT(on_log(int, QString)));
    QObject::connect(client, SIGNAL(onError()), engine, SLOT(on_error()));
    QObject::connect(client, SIGNAL(onMessage(int, QString, QString, int, int, bool)), engine,
                     SLOT(on_message(int, QString, QString, int, int, bool)));
    QObject::connect(client, &mosquittopp::mosquittoppqt::onLinkProblem, engine, &protobase_t::onLinkProblem);
}

} // namespace

protobase_t::protobase_t(service_t service, const QString& versionApp, const QString& clientId, bool givenEncoding)
    : encoding(givenEncoding), closeDelay(new QTimer(this))
{
    FLOTROFOBUL_LOG(info, "Starting comunication engine as "_l1 + service.ToString() + " version: "_l1 + versionApp);
    int major = 0;
    int minor = 0;
    int patch = 0;
    mosquittopp::lib_version(&major, &minor, &patch);
    FLOTROFOBUL_LOG(info, QStringLiteral("Running on libmosquitto %1.%2.%3").arg(major).arg(minor).arg(patch));
    advice = std::make_unique<advice_t>(this);
    advice->hold();
    messages = std::make_unique<message::classmessages>();
    system = new system_t(versionApp, service, clientId, nullptr);
    configuration = new config::mosquittocnf;
    statistics = std::make_unique<brokerdiagnostic::diagnostic_broker>();
    serializer = std::make_unique<QJsonSerializer>();
    system->setMasterId(QString());
    system->setMasterData(QJsonObject());
    configMutex = std::make_unique<QRecursiveMutex>();

    closeDelay->setSingleShot(true);
    closeDelay->setTimerType(Qt::PreciseTimer); // a coarse timer may fire 50 ms early
    QObject::connect(closeDelay, &QTimer::timeout, this, [this] { endSession(); });
}

protobase_t::protobase_t(service_t service, const QString& versionApp, const QString& path, const QString& clientId,
                         bool givenEncoding)
    : protobase_t(service, versionApp, clientId, givenEncoding)
{
    configPath = path;
    configure([this] { readConfigFromFile(configPath); }, *configuration, logging);
}

protobase_t::protobase_t(service_t service, const QString& versionApp, const QJsonObject& json, const QString& clientId,
                         bool givenEncoding)
    : protobase_t(service, versionApp, clientId, givenEncoding)
{
    configure([&] { readConfigFromJson(json); }, *configuration, logging);
}

protobase_t::~protobase_t()
{
    FLOTROFOBUL_LOG(info, QStringLiteral("Destroy comunication base ..."));
    // In this order: whoever watches destroyed() sees the pending requests go before the node that made them.
    messages.reset();
    delete system.data();
    delete configuration.data();
    if (client != nullptr) {
        client->deleteLater(); // from the event loop, after pending signals
    }
}

QString protobase_t::getClientId() const
{
    return system->getClientid();
}

QString protobase_t::getVersion()
{
    return utility::libraryVersion();
}

bool protobase_t::readConfigFromFile(const QString& path)
try {
    configured = false;
    FLOTROFOBUL_LOG(info, "Read comunication configuration from file: "_l1 + path);
    QFile file(path);
    if (!file.exists()) {
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
            FLOTROFOBUL_LOG(error, "Unable to open file: "_l1 + path + " Error: "_l1 + file.errorString());
        }
        advice->configurationNotRead(path, file.errorString());
        return false;
    }
    // A file that cannot be opened counts as empty, which is not JSON.
    const QByteArray bytes = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    // Read as text first: a stray byte of another encoding or zeros at the end spoil a text, not the whole file.
    const QByteArray text = textUpToZero(bytes).toUtf8();
    QJsonParseError outcome{};
    const QJsonDocument document = documentFromForeignJson(text, &outcome);
    if (outcome.error != QJsonParseError::NoError) {
        FLOTROFOBUL_LOG(error, "Error parsing file: "_l1 + path);
        if (file.isOpen()) {
            advice->configurationNoJson(path, text, outcome);
        } else {
            advice->configurationNotRead(path, file.errorString());
        }
        return false;
    }
    return applyConfiguration(document.object(), path);
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
    return false;
}

// True whatever the model says of single values: the text was read.
bool protobase_t::applyConfiguration(const QJsonObject& json, const QString& source)
{
    const bool taken = configuration->deserialize(json);
    configured = taken && json.contains("mqtt"_l1);
    if (!configured) {
        advice->configurationNotRead(source, QStringLiteral("it has no object \"mqtt\""));
    }
    advice->configurationRemarks(configuration->remarks());
    return true;
}

bool protobase_t::readConfigFromJson(const QJsonObject& json)
try {
    configured = false;
    FLOTROFOBUL_LOG(info, QStringLiteral("Read comunication configuration from json"));
    if (json.isEmpty()) {
        FLOTROFOBUL_LOG(error, QStringLiteral("Error: no valid json object"));
        advice->configurationNotRead(QStringLiteral("object"), QStringLiteral("it is empty"));
        return false;
    }
    return applyConfiguration(json, QStringLiteral("object"));
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
    return false;
}

bool protobase_t::saveConfigToFile(const QString& path)
try {
    FLOTROFOBUL_LOG(detail, "Try to write config comunication: "_l1 + path);
    const std::lock_guard<QRecursiveMutex> lock(*configMutex);
    const QJsonObject json = configuration->serialize();
    if (QFile::exists(path)) {
        FLOTROFOBUL_LOG(detail, "Override file "_l1 + path);
    } else {
        FLOTROFOBUL_LOG(warning, "File not foud write "_l1 + path);
    }
    const std::unique_ptr<QFileDevice> file = writerFor(path);
    if (path.isEmpty() || !file->open(QIODevice::WriteOnly)) {
        FLOTROFOBUL_LOG(error, "Unable to open file: "_l1 + path);
        return false;
    }
    if (!isSpecial(path) && !configuration->getMqtt()->getConnect()->getPassword().isEmpty()) {
        file->setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }
    if (!writeWhole(*file, jsonOf(QJsonDocument(json), QJsonDocument::Indented))) {
        FLOTROFOBUL_LOG(error, "Unable to write file: "_l1 + path);
        return false;
    }
    FLOTROFOBUL_LOG(info, "Writed"_l1 + path);
    return true;
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
    return false;
}

int protobase_t::init_comunication()
try {
    FLOTROFOBUL_LOG(info, "Init mosquitto clientid: "_l1 + system->getClientid());
    auto* const mqtt = configuration->getMqtt();
    if (client != nullptr) {
        client->disconnect(this);
        client->deleteLater();
    }
    client = new mosquittopp::mosquittoqt(system->getClientid(), mqtt->getConnect()->getCleansession(),
                                          mqtt->getGlobal()->getAutoconnect());
    client->setConnectTimeout(mqtt->getConnect()->getTimeout());
    client->setOutboxLimits(mqtt->getConnect()->getOutbox_messages(), mqtt->getConnect()->getOutbox_bytes());
    client->setMaxPacketBytes(mqtt->getConnect()->getMax_packet_bytes());
    const int credentials =
        client->username_pw_set(mqtt->getConnect()->getUsername(), mqtt->getConnect()->getPassword());
    client->setLogging(mqtt->getGlobal()->getLogging());
    client->setLoopInterval(mqtt->getGlobal()->getInterval());
    const int security = init_security();
    const int will = init_lastWillMessage();
    wire(client, this);
    return credentials != 0 || security != 0 || will != 0 ? 1 : 0;
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
    return 1;
}

int protobase_t::init_security()
try {
    FLOTROFOBUL_LOG(info, QStringLiteral("Init security ..."));
    const auto* const security = configuration->getMqtt()->getSecurity();
    if (!security->getTls_enable()) {
        FLOTROFOBUL_LOG(info, QStringLiteral("Tls secure is disabled"));
        return 0;
    }
    FLOTROFOBUL_LOG(info, QStringLiteral("Tls secure is enabled, try to set it .... "));
    const int rc =
        shared_t::brokerClient(*this).tls_set(security->getCa_file(), QString(), QString(), QString(), nullptr);
    const QString result = u'(' + QString::number(rc) + " TLS-SET) "_l1;
    switch (rc) {
    case 0:
        FLOTROFOBUL_LOG(info, result + "Tls set on success"_l1);
        FLOTROFOBUL_LOG(info, security->getTls_insecure() ? QStringLiteral("Tls set insecure")
                                                          : QStringLiteral("Tls set secure"));
        client->tls_insecure_set(security->getTls_insecure());
        break;
    case 1: FLOTROFOBUL_LOG(error, result + "Probably file format not correct"_l1); break;
    case 3: FLOTROFOBUL_LOG(error, result + "Probably file not exist"_l1); break;
    default: FLOTROFOBUL_LOG(error, result + "Unknown error"_l1); break;
    }
    return rc;
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
    return 1;
}

int protobase_t::init_lastWillMessage()
try {
    FLOTROFOBUL_LOG(info, QStringLiteral("Set last will message"));
    FLOTROFOBUL_LOG(detail, QStringLiteral("Create presentation object"));
    system->setConnected(false);
    const QString payload = JsonObjectToString({{dataKey, shared_t::ownRecord(*this)}}, QJsonDocument::Compact);
    shared_t::brokerClient(*this).will_clear();
    QString topic = topicOf(lastwill);
    const int qos = qosOf(lastwill);
    const bool retain = lastwill["retain"_l1].toBool();
    topic_publish_resolution_sender(topic);
    topic = topic_lastwillmessage(topic);
    topic.replace(INSTALLATIONID, shared_t::installationId(*this));
    FLOTROFOBUL_LOG(info, "Params last will message topic: "_l1 + topic + " qos: "_l1 + QString::number(qos) +
                              " retain: "_l1 + QString::number(retain));
    FLOTROFOBUL_LOG(detail, "payload: "_l1 + payload);
    const int rc = client->will_set(topic, Encode(payload), qos, retain);
    FLOTROFOBUL_LOG(info, "Set last will: "_l1 + QString::number(rc));
    return rc;
} catch (...) {
    FLOTROFOBUL_LOG(caught, exceptionText());
    return -1;
}

} // namespace comunication
