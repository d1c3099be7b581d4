// SPDX-License-Identifier: MIT
// Who a node is: the record with which every node presents itself to the others.
#pragma once

#include <flotrofobul/define/types.h>

#include <QtCore/QDateTime>
#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtNetwork/QNetworkInterface>

namespace comunication {
namespace utility {

/// Identity of one node: its role, client id, versions, machine, broker, and the master that it follows.
///
/// The eleven properties are the keys of a presentation packet. Setting one through the Qt property system, as happens
/// when a presentation is read, stores the value and emits nothing. Each engine owns one record of itself; records of
/// other nodes belong to the map that holds them. A record may be used on one thread only.
class FLOTROFOBUL_EXPORT system_t : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString clientid MEMBER clientid)
    Q_PROPERTY(QString os MEMBER os)
    Q_PROPERTY(QString type MEMBER type)
    Q_PROPERTY(QString versionLib MEMBER versionLib)
    Q_PROPERTY(QString versionApp MEMBER versionApp)
    Q_PROPERTY(QString hostname MEMBER hostname)
    Q_PROPERTY(QString publishDate MEMBER publishDate)
    Q_PROPERTY(bool connected MEMBER connected)
    Q_PROPERTY(QString brokerip MEMBER brokerip)
    Q_PROPERTY(QString masterid MEMBER masterid)
    Q_PROPERTY(QJsonObject masterData MEMBER masterData)

public:
    /// A record of this node. If the client id is blank, calculateId() computes it; otherwise it is taken exactly as
    /// given, and os, hostname and versionLib stay empty.
    Q_INVOKABLE system_t(const QString& _versionApp, service_t _servicetype, const QString& _clientId,
                         QObject* parent = nullptr);
    /// An empty record.
    Q_INVOKABLE explicit system_t(QObject* parent = nullptr);

    /// Reads os, hostname, versionLib and the client id from the machine; returns the client id, also after a failure.
    QString calculateId();
    /// Sets the client id to type + "@" + id, of which only ASCII letters, digits and "-" are kept.
    void setClientId(QString id);
    /// Logs every interface that has a hardware address and an IPv4 address; returns whether one of them is up. The
    /// interfaces are added to those of earlier calls.
    bool checkNetwork();
    /// MD5 digest of a file: its raw bytes read as UTF-8 up to the first zero byte, with invalid ones replaced. Empty
    /// if the file cannot be read.
    QString calculateHash(const QString& path);
    /// Stores the digest of a file, for getHash().
    void AddHash(const QString& path);

    /// service_t::server if the type is "server", otherwise service_t::client, although getType() may be any text.
    service_t getServiceType() const;
    /// Sets the master, and its record; emits changeMasterIdEvent() if the id changes.
    void setMasterId(const QString& id);
    void setMaster(const QString& id, const QJsonObject& data);
    /// Stores the time of a presentation as text (Qt::TextDate).
    void setPublishDate(const QDateTime& date);

    QString getClientid() const { return clientid; }
    QString getOs() const { return os; }
    QString getType() const { return type; }
    QString getTypeStr() const { return type; }
    QString getVersionLib() const { return versionLib; }
    QString getVersionApp() const { return versionApp; }
    QString getHostname() const { return hostname; }
    QString getPublishDate() const { return publishDate; }
    bool getConnected() const { return connected; }
    QString getBrokerip() const { return brokerip; }
    QString getMasterId() const { return masterid; }
    QJsonObject getMasterData() const { return masterData; }
    QMap<QString, QString> getHash() const { return hash; }
    QString getId_prefix() const { return id_prefix; }

    void setConnected(bool on) { connected = on; }
    void setBrokerip(const QString& ip) { brokerip = ip; }
    void setMasterData(const QJsonObject& data) { masterData = data; }

Q_SIGNALS:
    /// The master has changed; the id is empty if there is no master any more.
    void changeMasterIdEvent(QString _masterid);

private:
    QString id_prefix;
    QList<QNetworkInterface> interfaces;
    QString clientid;
    QString os;
    QString type;
    QString versionLib;
    QString versionApp;
    QString hostname;
    QString publishDate;
    bool connected = false;
    QString brokerip;
    QString masterid;
    QJsonObject masterData;
    bool networkUp = false;
    QMap<QString, QString> hash;
};

/// Version of the library and of its protocol.
FLOTROFOBUL_EXPORT QString libraryVersion();

} // namespace utility
} // namespace comunication
