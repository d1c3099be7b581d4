// SPDX-License-Identifier: MIT
// What a picture of a house shows at one moment: values only, cheap to copy, at home on every thread.
#pragma once

#include <flotrofobul/house/house_model.h>

#include <QtCore/QJsonObject>
#include <QtCore/QMetaType>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <memory>

namespace comunication {
namespace view {

using house::moment_t;

/// How things stand with a broker.
enum class hearing_t {
    connecting,
    listening,
    lost,     ///< it was listened to
    unheard,  ///< nobody listens there; that it is there follows from what came over bridges
    recording ///< what is shown was recorded there
};

/// One direction of the way between two brokers.
enum class direction_t {
    unknown,
    up,
    down,   ///< its bridge says so
    missing ///< one side speaks and nothing of it arrives
};

struct scene_broker_t {
    QString name; ///< "host:port"; of one that is not listened to the server behind
    hearing_t hearing = hearing_t::connecting;
    QString problem;
    QString version;
    int clients = -1;
    double rate = 0;
};

/// What is known between two brokers.
struct scene_line_t {
    int from = 0; ///< indices of brokers, from < to
    int to = 0;
    direction_t there = direction_t::unknown;
    direction_t back = direction_t::unknown;
    double rateThere = 0;
    double rateBack = 0;
    qint64 countThere = 0; ///< packets that crossed
    qint64 countBack = 0;
    QStringList names; ///< of its bridges
    QStringList down;  ///< those of them that are down
};

/// What seldom changes of a node; shared by all scenes in which it is the same.
struct scene_facts_t {
    QString id;
    QString installation;
    house::role_t role = house::role_t::unknown;
    house::presence_t presence = house::presence_t::unknown;
    bool isMaster = false;
    QString master;
    bool ready = false;
    bool encoded = false;
    moment_t since = house::never;
    moment_t masterSince = house::never;
    QJsonObject record;
    int broker = -1; ///< index of the one that it sits at
    QString why;     ///< why it is gone or unknown, in words
};

struct scene_node_t {
    std::shared_ptr<const scene_facts_t> facts;
    double rate = 0;
    moment_t heard = house::never;
    qint64 sent = 0;
    qint64 packets[house::wayCount] = {};
};

enum class tone_t { plain, good, bad };

struct scene_event_t {
    quint64 number = 0;
    moment_t moment = house::never;
    QString text;
    QString why;
    tone_t tone = tone_t::plain;
    QString subject; ///< a node, or a broker or bridge by its name
};

struct scene_t {
    moment_t moment{0};
    QVector<scene_broker_t> brokers;
    QVector<scene_line_t> lines;
    QVector<scene_node_t> nodes;
    QVector<scene_event_t> events; ///< those that are new or read otherwise since the scene before
    QString alarm;                 ///< what is wrong, in one line
    double rate = 0;               ///< packets a second
    double roundTrip = -1;         ///< milliseconds from the last request to its answer; -1: none
    QVector<double> roundTrips;    ///< of all answers since the scene before
    bool isNews = true;            ///< something but rates, counts and signs of life has changed
};
using shared_scene_t = std::shared_ptr<const scene_t>;

} // namespace view
} // namespace comunication

Q_DECLARE_METATYPE(comunication::view::shared_scene_t)
