// SPDX-License-Identifier: MIT
// A picture on a terminal that stays in place. All escape codes are in here.
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace comunication {
namespace tools {

/// Takes the terminal's other screen, so that what stood there before is back in the end.
class screen_t {
public:
    screen_t() = default;
    ~screen_t() { leave(); }
    screen_t(const screen_t&) = delete;
    screen_t& operator=(const screen_t&) = delete;

    /// Whether standard output is a terminal that understands this.
    [[nodiscard]] static bool isThere();
    /// Columns and rows as they are now.
    [[nodiscard]] static int columns();
    [[nodiscard]] static int rows();

    /// Shows these lines, cut to the screen; the first is set off, one that begins with "!" is an alarm.
    void show(const QStringList& lines);
    void leave();

private:
    bool taken = false;
};

/// Writes all of it to a file descriptor; false if that fails.
bool writeAll(int descriptor, const QByteArray& bytes);

} // namespace tools
} // namespace comunication
