// SPDX-License-Identifier: MIT
// One question to the master, from its asking to its end.
#pragma once

#include <QtCore/QJsonValue>
#include <QtCore/QObject>
#include <QtCore/QTimer>

#include <chrono>

namespace comunication {
namespace qml {

/// What Panel.request() gives. It ends once: with finished() or with failed(). While it is pending it belongs to its
/// panel, then to whoever holds it in QML.
class request_t : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString kind READ kind CONSTANT)
    Q_PROPERTY(bool pending READ isPending NOTIFY ended)
    /// The payload of the answer; undefined without one.
    Q_PROPERTY(QJsonValue answer READ answer NOTIFY ended)
    /// Why there is none, in words; empty as long as that is not known.
    Q_PROPERTY(QString problem READ problem NOTIFY ended)

public:
    request_t(const QString& kind, std::chrono::milliseconds limit, QObject* parent);

    [[nodiscard]] const QString& kind() const { return name; }
    [[nodiscard]] bool isPending() const { return pending; }
    [[nodiscard]] const QJsonValue& answer() const { return payload; }
    [[nodiscard]] const QString& problem() const { return why; }

    void finish(const QJsonValue& answer);
    void fail(const QString& reason);

Q_SIGNALS:
    void ended();
    void finished(const QJsonValue& payload);
    void failed(const QString& reason);

private:
    void end();

    const QString name;
    bool pending = true;
    QJsonValue payload{QJsonValue::Undefined};
    QString why;
    QTimer limit;
};

} // namespace qml
} // namespace comunication
