// SPDX-License-Identifier: MIT
#include "recording/recording.h"

#include <QtCore/QDateTime>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

namespace comunication {
namespace tools {

namespace {

constexpr qint64 longestHeading = 65536; // of what is no recording a line may have no end
constexpr int form = 1;                  // of the file, for those that come later
const QString formKey = QStringLiteral("flotrofobul_recording");
const QString brokerKey = QStringLiteral("broker");
const QString installationKey = QStringLiteral("installation_id");
const QString beganKey = QStringLiteral("began");

} // namespace

QByteArray lineOf(const heading_t& heading)
{
    const QString began = QDateTime::fromMSecsSinceEpoch(heading.began, Qt::UTC).toString(Qt::ISODateWithMs);
    return QJsonDocument(QJsonObject{{formKey, form},
                                     {brokerKey, heading.broker},
                                     {installationKey, heading.installationId},
                                     {beganKey, began}})
               .toJson(QJsonDocument::Compact) +
           '\n';
}

bool recording_t::open()
{
    if (!file.open(QIODevice::ReadOnly)) {
        words = QStringLiteral("cannot be read: %1").arg(file.errorString());
        return false;
    }
    const QJsonObject object = QJsonDocument::fromJson(file.readLine(longestHeading)).object();
    number = 1;
    if (object.value(formKey).toInt() != form) {
        words = object.contains(formKey) ? QStringLiteral("is a recording of a later form than this program reads")
                                         : QStringLiteral("is no recording of \"flotrofobul record\"");
        return false;
    }
    first.broker = object.value(brokerKey).toString();
    first.installationId = object.value(installationKey).toString();
    first.began = QDateTime::fromString(object.value(beganKey).toString(), Qt::ISODateWithMs).toMSecsSinceEpoch();
    return true;
}

std::optional<recorded_t> recording_t::next()
{
    while (words.isEmpty() && !file.atEnd()) {
        const QByteArray line = file.readLine();
        ++number;
        const QJsonObject object = QJsonDocument::fromJson(line).object();
        if (object.isEmpty() || !line.endsWith('\n')) {
            words = file.atEnd()
                        ? QStringLiteral("is cut off: line %1, the last one, is not whole and is left out").arg(number)
                        : QStringLiteral("is broken at line %1: it is read up to there").arg(number);
            return std::nullopt;
        }
        if (const auto packet = packetIn(object)) {
            return packet;
        } // the link was lost, or something of a later version
    }
    return std::nullopt;
}

} // namespace tools
} // namespace comunication
