// SPDX-License-Identifier: MIT
// Who a node is: the record that every node presents to the others.
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
/// The eleven properties are the keys of a presentation packet. Writing one through the Qt property system, as
/// reading a presentation does, stores the value and emits nothing. Each engine owns one record of itself;
/// records of other nodes belong to the map that holds them. A record may be used on one thread only.
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
    /// A record of this node. With a client id of blanks only the id is computed (calculateId()); any other is
    /// taken exactly as given, and then os, hostname and versionLib stay empty.
    Q_INVOKABLE system_t(const QString& _versionApp, service_t _servicetype, const QString& _clientId,
                         QObject* parent = nullptr);
    /// An empty record.
    Q_INVOKABLE explicit system_t(QObject* parent = nullptr);

    /// Fills os, hostname, versionLib and the client id from the machine; returns the client id.
    QString calculateId();
    /// Client id = type + "@" + id without anything but ASCII letters, digits and "-".
    void setClientId(QString id);
    /// Logs every interface that has a hardware address and an IPv4 address; returns whether one is up. The
    /// interfaces found are added to those of earlier calls.
    bool checkNetwork();
    /// MD5 digest of a file, its raw bytes read as UTF-8 up to the first zero byte (what is not valid is replaced);
    /// empty when the file cannot be read.
    QString calculateHash(const QString& path);
    /// Remembers the digest of a file.
    void AddHash(const QString& path);

    /// Server when the type is "server", else client; the type's text may hold anything (getType()).
    service_t getServiceType() const;
    /// Sets the master; emits changeMasterIdEvent() when the id changes.
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
    /// The master has changed; the id is empty when there is none any more.
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
