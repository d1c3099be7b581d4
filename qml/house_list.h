// SPDX-License-Identifier: MIT
// The model of a house as QML sees it: a row for each node. It listens and says nothing.
#pragma once

#include "connection/listener.h"

#include <flotrofobul/house/house_model.h>

#include <QtCore/QAbstractListModel>
#include <QtCore/QDateTime>
#include <QtCore/QTimer>
#include <QtCore/QVariant>
#include <QtQml/QQmlParserStatus>

#include <memory>

namespace comunication {
namespace qml {

/// All nodes that were heard at one broker, in the order in which they came.
///
///     ListView { model: HouseModel { configuration: "house.json" }
///                delegate: Text { text: model.nodeId + " " + model.presence } }
///
/// Changes come together every 100 ms, signs of life and rates every second.
class house_list_t : public QAbstractListModel, public QQmlParserStatus {
    Q_OBJECT
    Q_INTERFACES(QQmlParserStatus)
    /// As for a panel. Without an installation id every installation is shown.
    Q_PROPERTY(QVariant configuration READ configuration WRITE setConfiguration NOTIFY configurationChanged)
    Q_PROPERTY(bool active READ isActive WRITE setActive NOTIFY activeChanged)
    Q_PROPERTY(comunication::qml::house_list_t::state_t state READ state NOTIFY stateChanged)
    /// Why it does not listen, in words.
    Q_PROPERTY(QString problem READ problem NOTIFY stateChanged)
    Q_PROPERTY(int count READ count NOTIFY houseChanged)
    /// Client ids of the servers that call themselves master; one in a healthy house.
    Q_PROPERTY(QStringList masters READ masters NOTIFY houseChanged)
    /// Of the broker that is listened to: objects with name, up, since and servers.
    Q_PROPERTY(QVariantList bridges READ bridges NOTIFY houseChanged)
    /// What happened, the oldest first: objects with number, time and text.
    Q_PROPERTY(QVariantList events READ events NOTIFY houseChanged)
    /// Packets in a second.
    Q_PROPERTY(double rate READ rate NOTIFY rateChanged)

public:
    enum state_t { Offline, Connecting, Listening };
    Q_ENUM(state_t)
    enum role_names_t {
        nodeIdRole = Qt::UserRole, ///< client id
        roleRole,                  ///< "server", "client" or ""
        presenceRole,              ///< "here", "gone"; "unknown": only retained packets are known
        masterRole,                ///< whether it is master
        followsRole,               ///< client id of the master that it follows
        readyRole,
        sinceRole, ///< when it came, or went
        heardRole, ///< its last sign of life
        rateRole,  ///< its packets in a second
        packetsRole,
        encodedRole,
        recordRole ///< its last presentation
    };

    explicit house_list_t(QObject* parent = nullptr);
    ~house_list_t() override;

    void classBegin() override {}
    void componentComplete() override;

    [[nodiscard]] int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
    [[nodiscard]] QHash<int, QByteArray> roleNames() const override;

    [[nodiscard]] const QVariant& configuration() const { return given; }
    void setConfiguration(const QVariant& value);
    [[nodiscard]] bool isActive() const { return active; }
    void setActive(bool on);
    [[nodiscard]] state_t state() const { return now; }
    [[nodiscard]] const QString& problem() const { return why; }
    [[nodiscard]] int count() const { return rows.size(); }
    [[nodiscard]] QStringList masters() const { return house.masters(); }
    [[nodiscard]] QVariantList bridges() const;
    [[nodiscard]] QVariantList events() const;
    [[nodiscard]] double rate() const { return shownRate; }

Q_SIGNALS:
    void configurationChanged();
    void activeChanged();
    void stateChanged();
    void houseChanged();
    void rateChanged();

private:
    void begin();
    void listen();
    void set(state_t state, const QString& problem);
    void showChanges();
    void showSigns();
    void empty(const QString& installation);

    QVariant given;
    bool active = true;
    bool complete = false;
    state_t now = Offline;
    QString why;
    tools::connection_t connection;
    house::house_model_t house;
    std::unique_ptr<tools::listener_t> listener;
    QVector<house::house_node_t> rows; ///< as they are shown
    quint64 shown = 0;                 ///< revision of what is shown
    double shownRate = 0;
    QTimer changes; ///< runs when something has changed
    QTimer signs;   ///< runs as long as something is heard
    QTimer again;   ///< for a broker that was not there
    QTimer beginning;
};

} // namespace qml
} // namespace comunication
