// SPDX-License-Identifier: MIT
#include "picture.h"

#include "details.h"
#include "recording_span.h"

#include "watch/packet_lines.h"

#include <QtCharts/QXYSeries>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>

#include <algorithm>
#include <cmath>

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
using QtCharts::QXYSeries; // of no namespace in Qt 6
#endif

namespace comunication {
namespace view {

using house::role_t;
using tools::harmless;

namespace {

constexpr int plotSeconds = 300;
constexpr std::chrono::milliseconds betweenSteps{100}; // of a recording that plays
constexpr moment_t leastSpan{60000};                   // of the time line
constexpr moment_t freshness{2000};                    // of packets that are worth a dot
constexpr int steps = 20;                              // in which the time line grows
constexpr int mostEvents = 1000;
constexpr int keepalive = 60;
constexpr int timeout = 10;
constexpr int maxPacketBytes = 16777216;

const QVector<QByteArray> brokerRoles{"name", "state", "problem", "version", "clients", "rate",      "posX",
                                      "posY", "areaX", "areaY",   "areaW",   "areaH",   "isSelected"};
const QVector<QByteArray> nodeRoles{"nodeId",  "role",    "presence",   "master", "follows", "ready",
                                    "encoded", "rate",    "since",      "heard",  "posX",    "posY",
                                    "brokerX", "brokerY", "labelled",   "labelX", "labelY",  "labelW",
                                    "size",    "why",     "isSelected", "pulse"};
const QVector<QByteArray> lineRoles{"lineId", "fromX",      "fromY",      "toX",      "toY",   "there",
                                    "back",   "rateThere",  "rateBack",   "text",     "names", "labelX",
                                    "labelY", "isSelected", "pulseThere", "pulseBack"};
const QVector<QByteArray> eventRoles{"number", "time", "text", "why", "tone", "subject", "place"};
const QVector<QByteArray> packetRoles{"time", "topic", "payload", "qos", "retain"};

QString wordOf(tone_t tone)
{
    return tone == tone_t::good  ? QStringLiteral("good")
           : tone == tone_t::bad ? QStringLiteral("bad")
                                 : QStringLiteral("plain");
}

// Rates to a tenth: what nobody sees is no change.
double shownRate(double rate)
{
    return std::round(rate * 10) / 10;
}

QString keyOf(const scene_t& scene, const scene_line_t& line)
{
    return scene.brokers[line.from].name + QStringLiteral(" \u2013 ") + scene.brokers[line.to].name;
}

/// A round number that is not less.
double niceEnd(double value)
{
    double end = 1;
    while (end < value) {
        const double decade = std::pow(10, std::floor(std::log10(end) + 1e-9));
        end = end < 1.5 * decade ? 2 * decade : end < 3 * decade ? 5 * decade : 10 * decade;
    }
    return end;
}

double greatest(const QVector<QPointF>& points)
{
    double most = 0;
    for (const QPointF& point : points) {
        most = std::max(most, point.y());
    }
    return most;
}

void fill(QObject* series, const QVector<QPointF>& points)
{
    if (auto* const line = qobject_cast<QXYSeries*>(series)) {
        line->replace(points);
    }
}

/// How many packets are new, or none if that cannot be said.
int stepOf(qint64 before, qint64 now, bool isFresh)
{
    return isFresh && now > before ? 1 : 0;
}

QString titleOf(const QVector<tools::connection_t>& connections)
{
    const QString& installation = connections.first().installationId;
    const QString where =
        connections.size() == 1 ? connections.first().name() : picture_t::tr("%1 brokers").arg(connections.size());
    return installation.isEmpty() ? where : picture_t::tr("%1 at %2").arg(installation, where);
}

} // namespace

picture_t::picture_t(QObject* parent)
    : QObject(parent), brokerRows(brokerRoles), lineRows(lineRoles), nodeRows(nodeRoles), eventRows(eventRoles),
      packetRows(packetRoles), scene(std::make_shared<scene_t>()), watcher(new watcher_t)
{
    qRegisterMetaType<shared_scene_t>("comunication::view::shared_scene_t");
    qRegisterMetaType<moment_t>("comunication::view::moment_t");
    qRegisterMetaType<ring_view_t>("comunication::view::ring_view_t");
    qRegisterMetaType<rows_t*>();
    // What was on its way when something else was chosen is of no interest.
    connect(watcher, &watcher_t::changed, this, [this](quint64 number, const shared_scene_t& next) {
        if (number == generation) {
            take(next);
        }
    });
    connect(watcher, &watcher_t::passed, this, [this](quint64 number, moment_t moment) {
        if (number == generation) {
            pass(moment);
        }
    });
    connect(watcher, &watcher_t::ring, this, [this](quint64 number, const ring_view_t& ring) {
        if (number == generation) {
            showPackets(ring);
        }
    });
    connect(watcher, &watcher_t::reached, this,
            [this](quint64 number, moment_t moment, bool isEnd, const QString& words) {
                if (number == generation) {
                    reach(moment, isEnd, words);
                }
            });
    playTimer.setInterval(betweenSteps);
    connect(&playTimer, &QTimer::timeout, this, &picture_t::goOn);
    watcher->moveToThread(&thread);
    connect(&thread, &QThread::finished, watcher, &QObject::deleteLater);
    thread.start();
}

picture_t::~picture_t()
{
    thread.quit();
    thread.wait();
}

QDateTime picture_t::dateOf(moment_t moment)
{
    return moment == house::never ? QDateTime() : QDateTime::fromMSecsSinceEpoch(moment.count());
}

void picture_t::watch(const QVector<tools::connection_t>& connections, bool isGuess)
{
    empty();
    setBlank(isGuess);
    hasRecording = false;
    titleText = harmless(titleOf(connections));
    Q_EMIT titleChanged();
    QMetaObject::invokeMethod(
        watcher, [worker = watcher, number = generation, connections] { worker->watch(number, connections); });
}

bool picture_t::connectTo(const QString& host, int port, const QString& installation)
{
    const auto isLetterOrDigit = [](QChar c) { return c.isLetterOrNumber() && c.unicode() < 0x80; };
    const QString problem = host.trimmed().isEmpty() || tools::isUrl(host) ? tr("The host is a name or an address.")
                            : port < 1 || port > 65535                     ? tr("The port is a number from 1 to 65535.")
                            : !std::all_of(installation.begin(), installation.end(), isLetterOrDigit)
                                ? tr("An installation id has letters and digits only.")
                                : QString();
    setNotice(problem);
    if (problem.isEmpty()) {
        tools::connection_t connection;
        connection.host = host.trimmed();
        connection.port = port;
        connection.installationId = installation;
        connection.keepalive = keepalive;
        connection.timeout = timeout;
        connection.maxPacketBytes = maxPacketBytes;
        watch({connection});
    }
    return problem.isEmpty();
}

bool picture_t::open(const QString& file)
{
    const QString path = file.startsWith(QLatin1String("file:")) ? QUrl(file).toLocalFile() : file;
    const QString name = harmless(QFileInfo(path).fileName());
    recording_span_t found;
    if (const QString problem = recording_span_t::read(path, &found); !problem.isEmpty()) {
        setNotice(name + QLatin1Char(' ') + harmless(problem) + QLatin1Char('.'));
        return false;
    }
    empty();
    setNotice(QString());
    setBlank(false);
    hasRecording = true;
    live = false;
    titleText = name;
    whole = found.end;
    shown = found.begin;
    newest = found.begin;
    span = {found.begin, found.end};
    Q_EMIT titleChanged();
    Q_EMIT spanChanged();
    Q_EMIT timeChanged();
    Q_EMIT edgeChanged();
    QMetaObject::invokeMethod(watcher, [worker = watcher, number = generation, path] { worker->open(number, path); });
    show(dateOf(found.begin));
    return true;
}

void picture_t::empty()
{
    ++generation;
    pause();
    history.clear();
    eventList.clear();
    eventRows.show({});
    packetRing = {};
    packetRows.show({});
    nodePulses.clear();
    linePulses.clear();
    shown = house::never;
    newest = house::never;
    whole = house::never;
    span = {};
    live = true;
    selection = {};
    setWaiting(false);
    showScene(std::make_shared<scene_t>());
    Q_EMIT selectedChanged();
    Q_EMIT spanChanged();
    Q_EMIT timeChanged();
    Q_EMIT edgeChanged();
    fillDetails();
    fillPlot();
}

void picture_t::setViewWidth(qreal width)
{
    if (!qFuzzyCompare(size.width(), width)) {
        size.setWidth(width);
        Q_EMIT viewChanged();
        arrange();
        fillRows();
    }
}

void picture_t::setViewHeight(qreal height)
{
    if (!qFuzzyCompare(size.height(), height)) {
        size.setHeight(height);
        Q_EMIT viewChanged();
        arrange();
        fillRows();
    }
}

void picture_t::setSpeed(double speed)
{
    if (speed > 0 && speed <= 1000 && !qFuzzyCompare(speed, playSpeed)) {
        playSpeed = speed;
        Q_EMIT playingChanged();
    }
}

void picture_t::take(const shared_scene_t& next)
{
    const bool isHeard = std::any_of(next->brokers.begin(), next->brokers.end(), [](const scene_broker_t& broker) {
        return broker.hearing == hearing_t::listening;
    });
    setBlank(blank && !isHeard);
    history.add(next);
    newest = std::max(newest, next->moment);
    if (!next->events.isEmpty()) {
        showEvents(next->events);
    }
    if (hasRecording) {
        // Many come at once; what is shown in the end is shown by reach().
        if (!waiting && next->moment <= shown) {
            showScene(next);
        }
        return;
    }
    setSpan();
    Q_EMIT edgeChanged();
    if (live) {
        showScene(next);
        setTime(next->moment, true);
    }
    fillPlot();
}

void picture_t::pass(moment_t moment)
{
    if (moment > newest) {
        newest = moment;
        setSpan();
        Q_EMIT edgeChanged();
        if (live) {
            setTime(moment, true);
            fillPlot();
        }
    }
}

// Whatever was told before may read otherwise now.
void picture_t::showEvents(const QVector<scene_event_t>& events)
{
    for (const scene_event_t& event : events) {
        const auto place =
            std::lower_bound(eventList.begin(), eventList.end(), event.number,
                             [](const scene_event_t& one, quint64 number) { return one.number < number; });
        if (place != eventList.end() && place->number == event.number) {
            *place = event;
        } else {
            eventList.insert(place, event);
        }
    }
    if (eventList.size() > mostEvents) {
        eventList.remove(0, eventList.size() - mostEvents);
    }
    QVector<row_t> rows;
    const double length = std::max(1.0, double((span.end - span.begin).count()));
    for (auto event = eventList.crbegin(); event != eventList.crend(); ++event) {
        const double place = span.begin == house::never ? 0 : double((event->moment - span.begin).count()) / length;
        rows << row_t{QString::number(event->number),
                      {event->number, dateOf(event->moment), harmless(event->text), harmless(event->why),
                       wordOf(event->tone), harmless(event->subject), place}};
    }
    eventRows.show(rows);
}

void picture_t::showScene(const shared_scene_t& next)
{
    const bool isFresh = next->moment >= scene->moment && next->moment - scene->moment <= freshness;
    scene = next;
    for (const scene_node_t& node : scene->nodes) {
        pulses_t& pulses = nodePulses[node.facts->id];
        pulses.pulseThere += stepOf(pulses.there, node.sent, isFresh);
        pulses.there = node.sent;
    }
    for (const scene_line_t& line : scene->lines) {
        pulses_t& pulses = linePulses[keyOf(*scene, line)];
        pulses.pulseThere += stepOf(pulses.there, line.countThere, isFresh);
        pulses.pulseBack += stepOf(pulses.back, line.countBack, isFresh);
        pulses.there = line.countThere;
        pulses.back = line.countBack;
    }
    arrange();
    fillRows();
    Q_EMIT sceneChanged();
    fillDetails();
}

void picture_t::arrange()
{
    places = layoutOf(*scene, size);
}

void picture_t::fillRows()
{
    QVector<row_t> rows;
    for (int i = 0; i < scene->brokers.size(); ++i) {
        const scene_broker_t& broker = scene->brokers[i];
        const broker_place_t& place = places.brokers[i];
        rows << row_t{broker.name,
                      {harmless(broker.name), view::wordOf(broker.hearing), harmless(broker.problem),
                       harmless(broker.version), broker.clients, shownRate(broker.rate), place.mark.center().x(),
                       place.mark.center().y(), place.area.x(), place.area.y(), place.area.width(), place.area.height(),
                       selection.kind == QLatin1String("broker") && selection.id == broker.name}};
    }
    brokerRows.show(rows);

    rows.clear();
    for (int i = 0; i < scene->lines.size(); ++i) {
        const scene_line_t& line = scene->lines[i];
        const line_place_t& place = places.lines[i];
        const QString key = keyOf(*scene, line);
        const pulses_t& pulses = linePulses[key];
        rows << row_t{key,
                      {key, place.line.x1(), place.line.y1(), place.line.x2(), place.line.y2(),
                       view::wordOf(line.there), view::wordOf(line.back), shownRate(line.rateThere),
                       shownRate(line.rateBack), rateTextOf(line.rateThere + line.rateBack),
                       harmless(line.names.join(QStringLiteral(", "))), place.label.x(), place.label.y(),
                       selection.kind == QLatin1String("line") && selection.id == key, pulses.pulseThere,
                       pulses.pulseBack}};
    }
    lineRows.show(rows);

    rows.clear();
    for (int i = 0; i < scene->nodes.size(); ++i) {
        const scene_node_t& node = scene->nodes[i];
        const scene_facts_t& facts = *node.facts;
        const node_place_t& place = places.nodes[i];
        const QPointF broker = facts.broker >= 0 && facts.broker < places.brokers.size()
                                   ? places.brokers[facts.broker].mark.center()
                                   : place.mark.center();
        rows << row_t{
            facts.id,
            {harmless(facts.id), facts.role == role_t::unknown ? QString() : house::wordOf(facts.role),
             view::wordOf(facts.presence), facts.isMaster, facts.isMaster ? QString() : harmless(facts.master),
             facts.ready, facts.encoded, shownRate(node.rate), dateOf(facts.since),
             // To the second: it is for people.
             dateOf(node.heard == house::never ? node.heard : moment_t(node.heard.count() / 1000 * 1000)),
             place.mark.center().x(), place.mark.center().y(), broker.x(), broker.y(), !place.label.isEmpty(),
             place.label.x(), place.label.y(), place.label.width(), place.mark.width(), harmless(facts.why),
             selection.kind == QLatin1String("node") && selection.id == facts.id, nodePulses[facts.id].pulseThere}};
    }
    nodeRows.show(rows);
}

void picture_t::select(const QString& kind, const QString& id)
{
    if (selection.kind == kind && selection.id == id) {
        return;
    }
    selection = {id.isEmpty() ? QString() : kind, id};
    packetRing = {};
    packetRows.show({});
    const QString node = selection.kind == QLatin1String("node") ? id : QString();
    QMetaObject::invokeMethod(watcher, [worker = watcher, node] { worker->select(node); });
    fillRows();
    Q_EMIT selectedChanged();
    fillDetails();
}

void picture_t::fillDetails()
{
    QVariantList list;
    QString record;
    if (selection.kind == QLatin1String("node")) {
        for (const scene_node_t& node : scene->nodes) {
            if (node.facts->id == selection.id) {
                list = detailsOf(*scene, node);
                record = recordTextOf(node.facts->record);
            }
        }
    } else if (selection.kind == QLatin1String("broker")) {
        for (const scene_broker_t& broker : scene->brokers) {
            if (broker.name == selection.id) {
                list = detailsOf(*scene, broker);
            }
        }
    } else if (selection.kind == QLatin1String("line")) {
        for (const scene_line_t& line : scene->lines) {
            if (keyOf(*scene, line) == selection.id) {
                list = detailsOf(*scene, line);
            }
        }
    }
    if (list != detailList || record != recordWords) {
        detailList = list;
        recordWords = record;
        Q_EMIT detailsChanged();
    }
}

void picture_t::showPackets(const ring_view_t& ring)
{
    if (selection.kind == QLatin1String("node") && ring.id == selection.id) {
        packetRing = ring;
        fillPackets();
    }
}

// Newest first, none later than what is shown.
void picture_t::fillPackets()
{
    QVector<row_t> rows;
    for (auto packet = packetRing.packets.crbegin(); packet != packetRing.packets.crend(); ++packet) {
        if (live || packet->moment <= shown) {
            rows << row_t{
                QString::number(packet->serial),
                {dateOf(packet->moment), harmless(packet->topic), payloadTextOf(*packet), packet->qos, packet->retain}};
        }
    }
    packetRows.show(rows);
}

// The time line grows in steps: marks on it do not move with each packet.
void picture_t::setSpan()
{
    span_t next = span;
    if (hasRecording) {
        return;
    }
    if (next.begin == house::never || next.begin < history.begin()) {
        next.begin = history.begin();
    }
    const moment_t least = next.begin + leastSpan;
    if (next.end == house::never || newest > next.end) {
        next.end = std::max(least, newest + (newest - next.begin) / steps);
    }
    // What is forgotten leaves it in steps as well.
    if (span.begin != house::never && next.begin - span.begin < (span.end - span.begin) / steps) {
        next.begin = span.begin;
    }
    if (next.begin != span.begin || next.end != span.end) {
        span = next;
        Q_EMIT spanChanged();
        showEvents({});
    }
}

void picture_t::setTime(moment_t moment, bool isLiveNow)
{
    if (moment != shown || live != isLiveNow) {
        shown = moment;
        live = isLiveNow;
        Q_EMIT timeChanged();
    }
}

void picture_t::setNotice(const QString& words)
{
    if (noticeText != words) {
        noticeText = words;
        Q_EMIT noticeChanged();
    }
}

void picture_t::setBlank(bool on)
{
    if (blank != on) {
        blank = on;
        Q_EMIT blankChanged();
    }
}

// While it plays, each step waits a moment, which is nothing to tell.
void picture_t::setWaiting(bool on)
{
    waiting = on;
    if (loading != (on && !isPlaying())) {
        loading = !loading;
        Q_EMIT loadingChanged();
    }
}

void picture_t::show(const QDateTime& date)
{
    if (!date.isValid() || span.begin == house::never) {
        return;
    }
    const moment_t wanted = std::clamp(moment_t(date.toMSecsSinceEpoch()), span.begin, span.end);
    if (!hasRecording && wanted >= newest) {
        goLive();
        return;
    }
    setTime(wanted, false);
    const bool isForgotten = hasRecording && history.begin() != house::never && wanted < history.begin();
    if (hasRecording && (wanted > newest || history.begin() == house::never || isForgotten)) {
        setWaiting(true);
        if (isForgotten) {
            history.clear();
            newest = span.begin;
            QMetaObject::invokeMethod(
                watcher, [worker = watcher, number = ++generation, wanted] { worker->feedAnewTo(number, wanted); });
        } else {
            QMetaObject::invokeMethod(watcher, [worker = watcher, wanted] { worker->feedTo(wanted); });
        }
    } else {
        setWaiting(false);
    }
    if (const shared_scene_t then = history.at(wanted)) {
        showScene(then);
    }
    fillPackets();
    fillPlot();
}

void picture_t::goLive()
{
    if (hasRecording) {
        show(end());
        return;
    }
    if (const shared_scene_t last = history.at(newest)) {
        showScene(last);
    }
    setTime(newest, true);
    fillPackets();
    fillPlot();
}

void picture_t::play()
{
    if (hasRecording && !isPlaying()) {
        if (shown >= span.end) {
            show(begin());
        }
        sincePlayed.start();
        playTimer.start();
        Q_EMIT playingChanged();
    }
}

void picture_t::pause()
{
    if (isPlaying()) {
        playTimer.stop();
        Q_EMIT playingChanged();
    }
}

// While packets of an earlier moment are still being read, time stands.
void picture_t::goOn()
{
    const qint64 passed = sincePlayed.restart();
    if (waiting) {
        return;
    }
    if (shown >= span.end) {
        pause();
        return;
    }
    show(dateOf(shown + moment_t(std::llround(double(passed) * playSpeed))));
}

void picture_t::reach(moment_t moment, bool isEnd, const QString& words)
{
    newest = std::max(newest, moment);
    if (isEnd && newest < span.end) {
        // It does not go as far as its last line promised.
        span.end = newest;
        Q_EMIT spanChanged();
        showEvents({});
    }
    if (!words.isEmpty()) {
        setNotice(titleText + QLatin1Char(' ') + harmless(words) + QLatin1Char('.'));
    }
    if (shown <= newest || isEnd) {
        setTime(std::min(shown, span.end), false);
        if (const shared_scene_t then = history.at(shown)) {
            showScene(then);
        }
        fillPackets();
        fillPlot();
        setWaiting(false);
    }
    Q_EMIT edgeChanged();
}

void picture_t::fillPlot()
{
    plot_t next;
    if (shown != house::never) {
        next.rates = history.rates(shown, plotSeconds);
        next.trips = history.roundTrips(shown, plotSeconds);
        next.ratesMaximum = niceEnd(greatest(next.rates));
        next.tripsMaximum = niceEnd(greatest(next.trips));
    }
    if (next.rates != plot.rates || next.trips != plot.trips) {
        plot = next;
        Q_EMIT plotChanged();
    }
}

void picture_t::fillRates(QObject* series) const
{
    fill(series, plot.rates);
}

void picture_t::fillRoundTrips(QObject* series) const
{
    fill(series, plot.trips);
}

} // namespace view
} // namespace comunication
