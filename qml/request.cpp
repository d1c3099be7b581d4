// SPDX-License-Identifier: MIT
#include "request.h"

#include <QtQml/QQmlEngine>

namespace comunication {
namespace qml {

request_t::request_t(const QString& kind, std::chrono::milliseconds time, QObject* parent) : QObject(parent), name(kind)
{
    limit.setSingleShot(true);
    connect(&limit, &QTimer::timeout, this, [=] {
        fail(QStringLiteral("There was no answer within %1 s.").arg(std::chrono::duration<double>(time).count()));
    });
    limit.start(time);
}

void request_t::finish(const QJsonValue& answer)
{
    if (pending) {
        payload = answer;
        end();
        Q_EMIT finished(payload);
    }
}

void request_t::fail(const QString& reason)
{
    if (pending) {
        why = reason;
        end();
        Q_EMIT failed(why);
    }
}

// From here on the collector takes it when nobody in QML holds it. It does so through a wrapper: there has to be one.
void request_t::end()
{
    pending = false;
    limit.stop();
    Q_EMIT ended();
    QQmlEngine* const engine = parent() != nullptr ? qmlEngine(parent()) : nullptr;
    if (engine != nullptr) {
        setParent(nullptr);
        QQmlEngine::setObjectOwnership(this, QQmlEngine::JavaScriptOwnership);
        engine->newQObject(this);
    }
}

} // namespace qml
} // namespace comunication
