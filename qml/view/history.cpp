// SPDX-License-Identifier: MIT
#include "history.h"

#include <algorithm>

namespace comunication {
namespace view {

namespace {

constexpr moment_t step{1000};

int weightOf(const scene_t& scene)
{
    return 1 + scene.nodes.size() + scene.lines.size();
}

} // namespace

void history_t::add(const shared_scene_t& scene)
{
    sample(*scene);
    const std::size_t count = scenes.size();
    if (count >= 2 && !scenes[count - 1]->isNews && scene->moment - scenes[count - 2]->moment < step) {
        kept -= weightOf(*scenes.back());
        scenes.pop_back();
    }
    scenes.push_back(scene);
    kept += weightOf(*scene);
    while (kept > most && scenes.size() > 1) {
        kept -= weightOf(*scenes.front());
        scenes.pop_front();
    }
}

void history_t::clear()
{
    scenes.clear();
    samples.clear();
    kept = 0;
}

shared_scene_t history_t::at(moment_t moment) const
{
    const auto later = std::upper_bound(scenes.begin(), scenes.end(), moment,
                                        [](moment_t one, const shared_scene_t& other) { return one < other->moment; });
    return scenes.empty() ? nullptr : later == scenes.begin() ? scenes.front() : *(later - 1);
}

moment_t history_t::begin() const
{
    return scenes.empty() ? house::never : scenes.front()->moment;
}

moment_t history_t::end() const
{
    return scenes.empty() ? house::never : scenes.back()->moment;
}

void history_t::sample(const scene_t& scene)
{
    if (samples.empty() || scene.moment - samples.back().moment >= step) {
        samples.push_back({scene.moment, scene.rate, -1, 0});
        if (samples.size() > mostSamples) {
            samples.pop_front();
        }
    }
    sample_t& last = samples.back();
    last.rate = scene.rate;
    for (const double trip : scene.roundTrips) {
        last.trip = (std::max(last.trip, 0.0) * last.trips + trip) / (last.trips + 1);
        ++last.trips;
    }
}

template <typename value_t>
QVector<QPointF> history_t::points(moment_t moment, int seconds, value_t value) const
{
    QVector<QPointF> result;
    const auto first = std::lower_bound(samples.begin(), samples.end(), moment - std::chrono::seconds(seconds),
                                        [](const sample_t& one, moment_t begin) { return one.moment < begin; });
    for (auto one = first; one != samples.end() && one->moment <= moment; ++one) {
        if (value(*one) >= 0) {
            result << QPointF(double((one->moment - moment).count()) / 1000, value(*one));
        }
    }
    return result;
}

QVector<QPointF> history_t::rates(moment_t moment, int seconds) const
{
    return points(moment, seconds, [](const sample_t& one) { return one.rate; });
}

QVector<QPointF> history_t::roundTrips(moment_t moment, int seconds) const
{
    return points(moment, seconds, [](const sample_t& one) { return one.trip; });
}

} // namespace view
} // namespace comunication
