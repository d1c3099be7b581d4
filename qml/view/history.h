// SPDX-License-Identifier: MIT
// The scenes of the past, as many as fit, so that one can look back; and what the plot shows of them.
#pragma once

#include "scene.h"

#include <QtCore/QPointF>

#include <deque>

namespace comunication {
namespace view {

class history_t {
public:
    static constexpr int mostElements = 400000; ///< nodes and lines of all scenes together
    static constexpr int mostSamples = 86400;   ///< seconds that the plot can look back

    explicit history_t(int mostElementsKept = mostElements) : most(mostElementsKept) {}

    /// Scenes come in the order of their moments. Of scenes in which only rates and signs of life differ one a second
    /// is kept.
    void add(const shared_scene_t& scene);
    void clear();
    /// The last one that is not later; the first one for what is earlier. Null if there is none.
    [[nodiscard]] shared_scene_t at(moment_t moment) const;
    /// Moments of the first and the last scene; never without one.
    [[nodiscard]] moment_t begin() const;
    [[nodiscard]] moment_t end() const;
    [[nodiscard]] int elements() const { return kept; }

    /// Packets a second in the last seconds before a moment: x from -seconds to 0.
    [[nodiscard]] QVector<QPointF> rates(moment_t moment, int seconds) const;
    /// The same with the milliseconds of round trips.
    [[nodiscard]] QVector<QPointF> roundTrips(moment_t moment, int seconds) const;

private:
    struct sample_t {
        moment_t moment;
        double rate;
        double trip; ///< the mean; negative: none
        int trips;
    };

    void sample(const scene_t& scene);
    template <typename value_t>
    [[nodiscard]] QVector<QPointF> points(moment_t moment, int seconds, value_t value) const;

    const int most;
    int kept = 0;
    std::deque<shared_scene_t> scenes;
    std::deque<sample_t> samples; ///< one a second at most
};

} // namespace view
} // namespace comunication
