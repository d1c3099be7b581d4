// SPDX-License-Identifier: MIT
#include "house_list.h"

#include "configuration.h"

#include <flotrofobul/platform/config/mosquittocnf.h>

#include <chrono>
#include <utility>

namespace comunication {
namespace qml {

using house::house_bridge_t;
using house::house_event_t;
using house::house_model_t;
using house::house_node_t;
using house::moment_t;
using house::presence_t;

namespace {

constexpr std::chrono::milliseconds afterChange{100};
constexpr std::chrono::milliseconds betweenSigns{1000};
constexpr std::chrono::milliseconds beforeNextTry{2000};

moment_t present()
{
    return moment_t(QDateTime::currentMSecsSinceEpoch());
}

QVariant dateOf(moment_t moment)
{
    return moment == house::never ? QVariant() : QDateTime::fromMSecsSinceEpoch(moment.count());
}

const char* wordOf(presence_t presence)
{
    return presence == presence_t::here ? "here" : presence == presence_t::gone ? "gone" : "unknown";
}

/// What QML can ask of a row.
struct role_column_t {
    int role;
    const char* name;
    QVariant (*value)(const house_node_t& node);
};
const role_column_t columns[] = {
    {house_list_t::nodeIdRole, "nodeId", [](const house_node_t& node) -> QVariant { return node.id; }},
    {house_list_t::roleRole, "role",
     [](const house_node_t& node) -> QVariant {
         return node.role == house::role_t::unknown ? QString() : house::wordOf(node.role);
     }},
    {house_list_t::presenceRole, "presence",
     [](const house_node_t& node) -> QVariant { return QString::fromLatin1(wordOf(node.presence)); }},
    {house_list_t::masterRole, "master", [](const house_node_t& node) -> QVariant { return node.isMaster(); }},
    {house_list_t::followsRole, "follows",
     [](const house_node_t& node) -> QVariant { return node.master == node.id ? QString() : node.master; }},
    {house_list_t::readyRole, "ready", [](const house_node_t& node) -> QVariant { return node.ready; }},
    {house_list_t::sinceRole, "since", [](const house_node_t& node) { return dateOf(node.since); }},
    {house_list_t::heardRole, "heard", [](const house_node_t& node) { return dateOf(node.heard); }},
    {house_list_t::rateRole, "rate",
     [](const house_node_t& node) -> QVariant { return node.rate.perSecond(present()); }},
    {house_list_t::packetsRole, "packets", [](const house_node_t& node) -> QVariant { return node.sent; }},
    {house_list_t::encodedRole, "encoded", [](const house_node_t& node) -> QVariant { return node.encoded; }},
    {house_list_t::recordRole, "record", [](const house_node_t& node) -> QVariant { return node.record; }},
};

} // namespace

house_list_t::house_list_t(QObject* parent) : QAbstractListModel(parent)
{
    changes.setSingleShot(true);
    again.setSingleShot(true);
    beginning.setSingleShot(true);
    connect(&changes, &QTimer::timeout, this, &house_list_t::showChanges);
    connect(&signs, &QTimer::timeout, this, &house_list_t::showSigns);
    connect(&again, &QTimer::timeout, this, &house_list_t::listen);
    connect(&beginning, &QTimer::timeout, this, &house_list_t::begin);
}

house_list_t::~house_list_t() = default;

void house_list_t::componentComplete()
{
    complete = true;
    begin();
}

int house_list_t::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : rows.size();
}

QVariant house_list_t::data(const QModelIndex& index, int role) const
{
    const int column = role - nodeIdRole;
    const bool isThere =
        index.isValid() && index.row() < rows.size() && column >= 0 && column <= recordRole - nodeIdRole;
    return isThere ? columns[column].value(rows.at(index.row())) : QVariant();
}

QHash<int, QByteArray> house_list_t::roleNames() const
{
    QHash<int, QByteArray> names;
    for (const role_column_t& column : columns) {
        names.insert(column.role, column.name);
    }
    return names;
}

void house_list_t::setConfiguration(const QVariant& value)
{
    const QVariant taken = plain(value);
    if (given == taken) {
        return;
    }
    given = taken;
    Q_EMIT configurationChanged();
    if (complete) {
        beginning.start(0);
    }
}

void house_list_t::setActive(bool on)
{
    if (active != on) {
        active = on;
        Q_EMIT activeChanged();
        if (complete) {
            beginning.start(0);
        }
    }
}

QVariantList house_list_t::bridges() const
{
    QVariantList list;
    for (const house_bridge_t& bridge : house.bridges()) {
        list << QVariantMap{{QStringLiteral("name"), bridge.name},
                            {QStringLiteral("up"), bridge.up},
                            {QStringLiteral("since"), dateOf(bridge.since)},
                            {QStringLiteral("servers"), bridge.servers}};
    }
    return list;
}

QVariantList house_list_t::events() const
{
    QVariantList list;
    for (const house_event_t& event : house.events()) {
        list << QVariantMap{{QStringLiteral("number"), event.number},
                            {QStringLiteral("time"), dateOf(event.moment)},
                            {QStringLiteral("text"), event.text()}};
    }
    return list;
}

void house_list_t::begin()
{
    again.stop();
    listener.reset();
    if (!active) {
        house.forgetBridges();
        set(Offline, {});
        return;
    }
    const configuration_t read = readConfiguration(given, this);
    config::mosquittocnf model;
    if (read.problem.isEmpty()) {
        model.deserialize(read.json);
    }
    connection = tools::connectionOf(model);
    empty(connection.installationId);
    if (read.problem.isEmpty()) {
        set(Connecting, {});
        listen();
    } else {
        set(Offline, read.problem);
    }
}

void house_list_t::listen()
{
    // Single packets are not looked at: their quality of service would only cost the broker.
    listener = std::make_unique<tools::listener_t>(connection, 0);
    tools::listener_t* const source = listener.get();
    source->neverRest();
    connect(source, &tools::listener_t::ready, this, [this] { set(Listening, {}); });
    connect(source, &tools::listener_t::problem, this, [this](const QString& words) {
        house.forgetBridges(); // told anew with the next session
        set(Offline, words);
    });
    connect(source, &tools::listener_t::failed, this, [this](const QString& words) {
        set(Offline, words);
        again.start(beforeNextTry);
    });
    connect(source, &tools::listener_t::heard, this, [this](const tools::packet_t& packet) {
        house.take(moment_t(packet.moment), packet.topic, packet.payload, packet.qos, packet.retain);
        if (!signs.isActive()) {
            signs.start(betweenSigns);
        }
    });
    source->start();
}

void house_list_t::set(state_t state, const QString& problem)
{
    if (now != state || why != problem) {
        now = state;
        why = problem;
        Q_EMIT stateChanged();
    }
}

void house_list_t::empty(const QString& installation)
{
    beginResetModel();
    house = house_model_t(installation);
    house.setObserver([this] {
        if (!changes.isActive()) {
            changes.start(afterChange);
        }
    });
    rows.clear();
    shown = 0;
    endResetModel();
    Q_EMIT houseChanged();
}

void house_list_t::showChanges()
{
    const QVector<house_node_t>& nodes = house.nodes();
    if (house.lastRemoval() > shown || nodes.size() < rows.size()) {
        beginResetModel();
        rows = nodes;
        endResetModel();
    } else {
        for (int row = 0; row < rows.size(); ++row) {
            if (nodes.at(row).changed > shown) {
                rows[row] = nodes.at(row);
                Q_EMIT dataChanged(index(row), index(row));
            }
        }
        if (nodes.size() > rows.size()) {
            beginInsertRows(QModelIndex(), rows.size(), nodes.size() - 1);
            rows += nodes.mid(rows.size());
            endInsertRows();
        }
    }
    shown = house.revision();
    Q_EMIT houseChanged();
}

// Nothing that a person sees but times and counts. It ends by itself when the house falls silent.
void house_list_t::showSigns()
{
    if (house.lastRemoval() > shown) {
        return; // rows are about to move
    }
    const moment_t moment = present();
    bool isSilent = true;
    for (int row = 0; row < rows.size(); ++row) {
        const house_node_t& node = house.nodes().at(row);
        if (node.heard != rows.at(row).heard || node.rate.perSecond(moment) > 0) {
            isSilent = false;
            rows[row] = node;
            Q_EMIT dataChanged(index(row), index(row), {heardRole, rateRole, packetsRole});
        }
    }
    if (isSilent) {
        signs.stop();
    }
    if (std::exchange(shownRate, house.rate(moment)) != shownRate) {
        Q_EMIT rateChanged();
    }
}

} // namespace qml
} // namespace comunication
