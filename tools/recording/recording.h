// SPDX-License-Identifier: MIT
// A recording as a file: what stands in its first line, and how it is read as far as it goes.
#pragma once

#include "watch/packet_lines.h"

#include <QtCore/QFile>

#include <optional>

namespace comunication {
namespace tools {

/// The first line of a recording.
struct heading_t {
    QString broker; ///< "host:port"
    QString installationId;
    qint64 began = 0; ///< milliseconds since 1970
};

[[nodiscard]] QByteArray lineOf(const heading_t& heading);

/// Reads a recording line by line, so that it may be long.
class recording_t {
public:
    explicit recording_t(const QString& path) : file(path) {}

    /// False if the file is no recording; problem() says why.
    bool open();
    [[nodiscard]] const heading_t& heading() const { return first; }
    /// The next packet; nothing at the end. A line that is cut off or broken is the end, and problem() says so.
    [[nodiscard]] std::optional<recorded_t> next();
    [[nodiscard]] const QString& problem() const { return words; }
    /// Whether more may follow what is broken; of a recording that is cut off all has been read.
    [[nodiscard]] bool isBroken() const { return !words.isEmpty() && !file.atEnd(); }

private:
    QFile file;
    heading_t first;
    int number = 0;
    QString words;
};

} // namespace tools
} // namespace comunication
