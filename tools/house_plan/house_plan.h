// SPDX-License-Identifier: MIT
// A house of several boxes as a value: which boxes there are and how their brokers are joined. It is read from a file
// or made by a program; what stands in a broker's configuration for it is in bridge_lines.h. No broker and no network
// here.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QVector>

#include <optional>

namespace comunication {
namespace tools {

/// How to reach a broker, for a bridge and for who checks it.
struct access_t {
    QString host;
    int port = 1883;
    QString username;
    QString password;
    bool tlsEnable = false;
    bool tlsInsecure = false; ///< a certificate for another host is accepted
    QString caFile;           ///< path on the machine that dials
};

/// One server and its broker.
struct box_t {
    QString server; ///< what follows "tarnel-server-" in the server's client id
    access_t broker;
    bool master = false; ///< its server is the default master; at most one, the first box where there is none
};

/// A broker outside the house, which phones use; one box dials it.
struct cloud_t {
    access_t broker;
    QString bridgeKey;         ///< client id of the bridge, which the phones know
    QString box;               ///< server of the box that dials; empty: the hub of a star, the only box
    int lanes = 0;             ///< 1 or 2; 0: as between the boxes. The second one adds "_data" to the key
    bool notifications = true; ///< the bridge says there, under $SYS, whether it stands; some brokers do not allow it
};

/// What differs for one pair of boxes from what is made up for it.
struct joint_t {
    QString from;           ///< server of the box that dials
    QString to;             ///< server of the box that is dialled
    QString host;           ///< where "from" reaches "to"; empty: as everybody else
    int port = 0;           ///< 0: as everybody else
    QString remoteClientId; ///< both names or none
    QString localClientId;
};

enum class shape_t {
    mesh,    ///< a bridge for every pair, dialled from one end
    outOnly, ///< every box dials every other and only sends
    star,    ///< the hub dials all others and passes on what they say
};

struct house_plan_t {
    QString installationId;
    shape_t shape = shape_t::mesh;
    int lanes = 2; ///< 2: presence and status are kept for a box that is away, commands are not; 1: all in one bridge
    QString hub;   ///< server in the middle of a star
    QVector<box_t> boxes;
    std::optional<cloud_t> cloud;
    QVector<joint_t> joints;

    /// Place of the box of a server in boxes; -1: none.
    [[nodiscard]] int indexOf(const QString& server) const;
    /// The box whose server is the default master; -1 without boxes.
    [[nodiscard]] int masterIndex() const;
    /// The box that dials the cloud broker; -1 without one.
    [[nodiscard]] int cloudIndex() const;
};

/// Something that cannot work: where in the description ("boxes[1].host"), and why.
struct fault_t {
    QString place;
    QString reason;
};

/// All that is wrong with a plan, in the order of the description; empty for one that works.
[[nodiscard]] QVector<fault_t> faultsOf(const house_plan_t& plan);

struct reading_t {
    house_plan_t plan;
    QVector<fault_t> faults; ///< of the text and of the plan
};

/// Reads a description in JSON. The plan is of use only when nothing is wrong with it.
[[nodiscard]] reading_t readHousePlan(const QByteArray& text);

} // namespace tools
} // namespace comunication
