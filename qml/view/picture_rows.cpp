// SPDX-License-Identifier: MIT
// What a picture shows of the moment that was chosen: rows for delegates, details, packets and plots.
#include "details.h"
#include "picture.h"
#include "picture_roles.h"

#include "watch/packet_lines.h"

#include <QtCharts/QXYSeries>

#include <algorithm>
#include <cmath>

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
using QtCharts::QXYSeries; // of no namespace in Qt 6
#endif

namespace comunication {
namespace view {

using house::role_t;
using tools::harmless;

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

namespace {

constexpr int plotSeconds = 300;
constexpr moment_t freshness{2000}; // of packets that are worth a dot
constexpr int mostEvents = 1000;

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

} // namespace

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
