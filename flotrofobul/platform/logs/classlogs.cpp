// SPDX-License-Identifier: MIT
// Where log lines go: to the sink of the host, or to the Qt logging category.
#include <flotrofobul/platform/logs/classlogs.h>

#include <QtCore/QLoggingCategory>

#include <memory>
#include <mutex>

namespace utility {
namespace logs {

namespace {

Q_LOGGING_CATEGORY(category, "flotrofobul")

QtMsgType messageType(int level)
{
    if (level <= error) {
        return QtCriticalMsg;
    }
    if (level == warning) {
        return QtWarningMsg;
    }
    return level < detail ? QtInfoMsg : QtDebugMsg;
}

// The sink is shared, so that a thread in the middle of logging keeps its sink while another thread sets a new one.
// Never destroyed: an engine with static storage duration logs from its destructor.
struct sink_holder_t {
    std::mutex mutex;
    std::shared_ptr<const classlogs::Sink> sink;
};

sink_holder_t& holder()
{
    static auto* const only = new sink_holder_t;
    return *only;
}

void writeToCategory(const LogRecord& record)
{
    const QByteArray function = record.function.toUtf8();
    const QByteArray file = record.file.toUtf8();
    const QMessageLogger logger(file.constData(), record.line, function.constData(), category().categoryName());
    switch (messageType(record.level)) {
    case QtCriticalMsg: logger.critical("%s", qUtf8Printable(record.message)); break;
    case QtWarningMsg: logger.warning("%s", qUtf8Printable(record.message)); break;
    case QtInfoMsg: logger.info("%s", qUtf8Printable(record.message)); break;
    default: logger.debug("%s", qUtf8Printable(record.message)); break;
    }
}

} // namespace

classlogs classlogs::instance;

const bool classlogs::levelIsFixed = [] {
    bool isNumber = false;
    const int level = qEnvironmentVariableIntValue("FLOTROFOBUL_LOG_LEVEL", &isNumber);
    if (isNumber) {
        instance.highestLevel.store(level, std::memory_order_relaxed);
    }
    return isNumber;
}();

void classlogs::setLevel(int highest) noexcept
{
    if (!levelIsFixed) {
        highestLevel.store(highest, std::memory_order_relaxed);
    }
}

bool classlogs::reachesSomebody(int level) const noexcept
{
    return hasSink.load(std::memory_order_relaxed) || category().isEnabled(messageType(level));
}

void classlogs::log(const QString& message, int level, const QString& function, const QString& file, int line)
{
    if (!isEnabled(level)) {
        return;
    }
    std::shared_ptr<const Sink> sink;
    if (hasSink.load(std::memory_order_acquire)) {
        const std::lock_guard<std::mutex> lock(holder().mutex);
        sink = holder().sink;
    }
    const LogRecord record{message, level, function, file, line};
    try {
        if (sink) {
            (*sink)(record);
        } else {
            writeToCategory(record);
        }
    } catch (...) {
        // A failing sink must not bring the engine down, and there is nobody left to tell.
    }
}

void classlogs::setSink(Sink sink)
{
    std::shared_ptr<const Sink> next;
    if (sink) {
        next = std::make_shared<const Sink>(std::move(sink));
    }
    {
        const std::lock_guard<std::mutex> lock(holder().mutex);
        holder().sink.swap(next);
        hasSink.store(holder().sink != nullptr, std::memory_order_release);
    }
    // The former sink is destroyed here, outside the lock, because its destructor may log.
}

} // namespace logs
} // namespace utility
