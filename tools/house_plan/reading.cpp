// SPDX-License-Identifier: MIT
// Reads the description of a house: the keys of each object are a table, and what no table has is refused.
#include "house_plan/house_plan.h"

#include <flotrofobul/platform/config/spelling.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QStringList>

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>
#include <vector>

namespace comunication {
namespace tools {

namespace {

class reader_t {
public:
    explicit reader_t(reading_t& givenResult) : result(givenResult) {}

    void readHouse(const QJsonObject& json)
    {
        house_plan_t& plan = result.plan;
        access_t common;
        keys_t keys = accessKeys(common);
        keys.erase(keys.begin(), keys.begin() + 2); // host and port are each box's own
        keys.insert(keys.begin(), {{"installation_id", text(plan.installationId)},
                                   {"shape", [&](const QJsonValue& value) { return readShape(value); }},
                                   {"lanes", number(plan.lanes)},
                                   {"hub", server(plan.hub)}});
        // What stands beside the boxes holds for all of them, wherever it stands.
        keys.push_back({"boxes", nullptr});
        keys.push_back({"cloud", nullptr});
        keys.push_back({"bridges", nullptr});
        readKeys(json, QString(), keys);
        readList(json, "boxes", [&](const QJsonObject& one, const QString& place) {
            box_t box;
            box.broker = common;
            keys_t own = accessKeys(box.broker);
            own.insert(own.begin(), {{"server", server(box.server)}, {"master", flag(box.master)}});
            readKeys(one, place, own);
            plan.boxes << box;
        });
        readList(json, "bridges", [&](const QJsonObject& one, const QString& place) {
            joint_t joint;
            readKeys(one, place,
                     {{"from", server(joint.from)},
                      {"to", server(joint.to)},
                      {"host", text(joint.host)},
                      {"port", number(joint.port)},
                      {"remote_clientid", text(joint.remoteClientId)},
                      {"local_clientid", text(joint.localClientId)}});
            if (one.contains(QLatin1String("port")) && joint.port == 0) {
                joint.port = -1; // a fault, not "as everybody else"
            }
            plan.joints << joint;
        });
        const QJsonValue cloud = json.value(QLatin1String("cloud"));
        if (cloud.isObject()) {
            plan.cloud.emplace();
            keys_t own = accessKeys(plan.cloud->broker);
            own.insert(own.begin(), {{"bridge_key", text(plan.cloud->bridgeKey)},
                                     {"box", server(plan.cloud->box)},
                                     {"lanes", number(plan.cloud->lanes)},
                                     {"notifications", flag(plan.cloud->notifications)}});
            readKeys(cloud.toObject(), QStringLiteral("cloud"), own);
        } else if (!cloud.isUndefined()) {
            add(QStringLiteral("cloud"), QStringLiteral("has to be an object"));
        }
    }

private:
    /// Takes a value; returns what it has to be instead, or nothing.
    using take_t = std::function<QString(const QJsonValue&)>;
    using keys_t = std::vector<std::pair<const char*, take_t>>;

    static take_t text(QString& member)
    {
        return [&member](const QJsonValue& value) {
            member = value.toString();
            return value.isString() ? QString() : QStringLiteral("a text");
        };
    }
    static take_t flag(bool& member)
    {
        return [&member](const QJsonValue& value) {
            member = value.toBool();
            return value.isBool() ? QString() : QStringLiteral("true or false");
        };
    }
    static bool isWhole(const QJsonValue& value)
    {
        return value.isDouble() && std::trunc(value.toDouble()) == value.toDouble() && std::abs(value.toDouble()) < 1e9;
    }
    static take_t number(int& member)
    {
        return [&member](const QJsonValue& value) {
            member = isWhole(value) ? static_cast<int>(value.toDouble()) : member;
            return isWhole(value) ? QString() : QStringLiteral("a whole number");
        };
    }
    /// The id of a server may be written as a number.
    static take_t server(QString& member)
    {
        return [&member](const QJsonValue& value) {
            member = isWhole(value) ? QString::number(value.toDouble(), 'f', 0) : value.toString();
            return isWhole(value) || value.isString() ? QString() : QStringLiteral("a text or a whole number");
        };
    }
    static keys_t accessKeys(access_t& broker)
    {
        return {{"host", text(broker.host)},
                {"port", number(broker.port)},
                {"username", text(broker.username)},
                {"password", text(broker.password)},
                {"tls_enable", flag(broker.tlsEnable)},
                {"tls_insecure", flag(broker.tlsInsecure)},
                {"ca_file", text(broker.caFile)}};
    }

    QString readShape(const QJsonValue& value)
    {
        const std::pair<QString, shape_t> shapes[] = {{QStringLiteral("mesh"), shape_t::mesh},
                                                      {QStringLiteral("out only"), shape_t::outOnly},
                                                      {QStringLiteral("star"), shape_t::star}};
        for (const auto& [word, shape] : shapes) {
            if (value.toString() == word) {
                result.plan.shape = shape;
                return QString();
            }
        }
        return QStringLiteral("\"mesh\", \"out only\" or \"star\"");
    }

    void readKeys(const QJsonObject& json, const QString& place, const keys_t& keys)
    {
        const QString prefix = place.isEmpty() ? place : place + QLatin1Char('.');
        QStringList known;
        for (const auto& [key, take] : keys) {
            known << prefix + QLatin1String(key);
            const QJsonValue value = json.value(QLatin1String(key));
            const QString wanted = take && !value.isUndefined() ? take(value) : QString();
            if (value.toString() == QLatin1String("both")) {
                add(known.last(), bothIsNone());
            } else if (!wanted.isEmpty()) {
                add(known.last(), QStringLiteral("has to be ") + wanted);
            }
        }
        for (auto it = json.begin(); it != json.end(); ++it) {
            const QString path = prefix + it.key();
            if (known.contains(path)) {
                continue;
            }
            const QString meant = config::probablyMeant(path, known);
            if (it->toString() == QLatin1String("both")) {
                add(path, bothIsNone());
            } else if (meant.isEmpty()) {
                QStringList names = known;
                names.replaceInStrings(prefix, QString());
                add(path, QStringLiteral("is no key that is known here; there are: %1")
                              .arg(names.join(QStringLiteral(", "))));
            } else {
                add(path,
                    QStringLiteral("is no key that is known here; is \"%1\" meant?").arg(meant.mid(prefix.size())));
            }
        }
    }

    static QString bothIsNone()
    {
        return QStringLiteral("is \"both\", with which the far side is never heard: one prefix has to become another, "
                              "differently for each way; leave it to the shape, \"mesh\", \"out only\" or \"star\"");
    }

    template <typename Read>
    void readList(const QJsonObject& json, const char* key, Read&& read)
    {
        const QJsonValue value = json.value(QLatin1String(key));
        if (!value.isArray() && !value.isUndefined()) {
            add(QLatin1String(key), QStringLiteral("has to be a list"));
        }
        const QJsonArray list = value.toArray();
        for (int i = 0; i < list.size(); ++i) {
            const QString place = QStringLiteral("%1[%2]").arg(QLatin1String(key)).arg(i);
            if (!list[i].isObject()) {
                add(place, QStringLiteral("has to be an object"));
            }
            read(list[i].toObject(), place);
        }
    }

    void add(const QString& place, const QString& reason) { result.faults << fault_t{place, reason}; }

    reading_t& result;
};

QString placeOf(const QByteArray& text, int offset)
{
    const QByteArray before = text.left(offset);
    return QStringLiteral("line %1, column %2")
        .arg(before.count('\n') + 1)
        .arg(before.size() - before.lastIndexOf('\n'));
}

} // namespace

reading_t readHousePlan(const QByteArray& text)
{
    reading_t result;
    QJsonParseError outcome{};
    const QJsonDocument document = QJsonDocument::fromJson(text, &outcome);
    if (outcome.error != QJsonParseError::NoError) {
        result.faults << fault_t{placeOf(text, outcome.offset), QStringLiteral("is no JSON: ") + outcome.errorString()};
        return result;
    }
    if (!document.isObject()) {
        result.faults << fault_t{placeOf(text, 0), QStringLiteral("has to be an object")};
        return result;
    }
    reader_t(result).readHouse(document.object());
    // A value of the wrong type has been reported; what the rules say of the default in its place would be noise.
    for (const fault_t& fault : faultsOf(result.plan)) {
        const bool reported = std::any_of(result.faults.begin(), result.faults.end(), [&](const fault_t& known) {
            return fault.place == known.place || fault.place.startsWith(known.place + QLatin1Char('.'));
        });
        if (!reported) {
            result.faults << fault;
        }
    }
    return result;
}

} // namespace tools
} // namespace comunication
