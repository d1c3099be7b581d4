// SPDX-License-Identifier: MIT
#include "watch/screen.h"

#include <QtCore/QByteArray>

#include <algorithm>
#include <cerrno>

#include <sys/ioctl.h>
#include <unistd.h>

namespace comunication {
namespace tools {

namespace {

constexpr char enter[] = "\x1b[?1049h\x1b[?25l"; // other screen, no cursor
constexpr char back[] = "\x1b[?25h\x1b[?1049l";
constexpr char home[] = "\x1b[H";
constexpr char toEndOfLine[] = "\x1b[K";
constexpr char toEndOfScreen[] = "\x1b[J";
constexpr char bold[] = "\x1b[1m";
constexpr char alarm[] = "\x1b[1;31m";
constexpr char plain[] = "\x1b[0m";

winsize size()
{
    winsize result{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &result) != 0 || result.ws_col == 0 || result.ws_row == 0) {
        result.ws_col = 80;
        result.ws_row = 24;
    }
    return result;
}

} // namespace

bool writeAll(int descriptor, const QByteArray& bytes)
{
    const char* data = bytes.constData();
    for (qint64 left = bytes.size(); left > 0;) {
        const ssize_t written = ::write(descriptor, data, static_cast<std::size_t>(left));
        if (written < 0 && errno != EINTR && errno != EAGAIN) {
            return false;
        }
        data += std::max<ssize_t>(written, 0);
        left -= std::max<ssize_t>(written, 0);
    }
    return true;
}

bool screen_t::isThere()
{
    const QByteArray kind = qgetenv("TERM");
    return ::isatty(STDOUT_FILENO) != 0 && !kind.isEmpty() && kind != "dumb";
}

int screen_t::columns()
{
    return size().ws_col;
}

int screen_t::rows()
{
    return size().ws_row;
}

void screen_t::show(const QStringList& lines)
{
    QByteArray bytes = taken ? "" : enter;
    bytes += home;
    taken = true;
    const bool colour = qEnvironmentVariableIsEmpty("NO_COLOR");
    const int count = std::min<int>(lines.size(), rows());
    for (int i = 0; i < count; ++i) {
        const bool isAlarm = lines[i].startsWith(QLatin1Char('!'));
        const QByteArray text = lines[i].mid(isAlarm ? 1 : 0).left(columns()).toUtf8();
        const char* const style = isAlarm ? (colour ? alarm : bold) : i == 0 ? bold : nullptr;
        bytes += i == 0 ? "" : "\r\n";
        bytes += toEndOfLine; // before the text, which may fill the line
        bytes += style == nullptr ? text : QByteArray(style + text + plain);
    }
    // One piece, so that nothing half drawn is seen.
    if (count < rows()) {
        bytes += "\r\n";
        bytes += toEndOfScreen;
    }
    writeAll(STDOUT_FILENO, bytes);
}

void screen_t::leave()
{
    if (taken) {
        taken = false;
        writeAll(STDOUT_FILENO, back);
    }
}

} // namespace tools
} // namespace comunication
