// SPDX-License-Identifier: MIT
#include "recording_span.h"

#include "recording/recording.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>

#include <algorithm>

namespace comunication {
namespace view {

namespace {

constexpr qint64 tail = 4 * 1024 * 1024; // more than a packet can have as a rule

} // namespace

QString recording_span_t::read(const QString& path, recording_span_t* span)
{
    // What is no plain file may have no end, or keep us waiting for its beginning.
    if (const QFileInfo info(path); info.exists() && !info.isFile()) {
        return QStringLiteral("is no file");
    }
    tools::recording_t recording(path);
    if (!recording.open()) {
        return recording.problem();
    }
    const auto first = recording.next();
    if (!first) {
        return recording.problem().isEmpty() ? QStringLiteral("holds no packet") : recording.problem();
    }
    const moment_t began(recording.heading().began);
    span->begin = began + std::clamp(moment_t(first->at), moment_t(0), longestRecording);
    span->end = span->begin;

    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return file.errorString();
    }
    file.seek(std::max<qint64>(0, file.size() - tail));
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (auto line = lines.crbegin(); line != lines.crend(); ++line) {
        if (const auto last = tools::packetIn(QJsonDocument::fromJson(*line).object())) {
            span->end = std::max(span->begin, began + std::clamp(moment_t(last->at), moment_t(0), longestRecording));
            break;
        }
    }
    return {};
}

} // namespace view
} // namespace comunication
