// SPDX-License-Identifier: MIT
// The region of a broker, below all that stands in it.
import QtQuick 2.15
import "."

Rectangle {
    id: area

    required property var model
    required property real areaX
    required property real areaY
    required property real areaW
    required property real areaH
    required property bool isSelected

    readonly property string condition: model.state // an Item has a state of its own

    x: areaX + 2
    y: areaY + 2
    width: areaW - 4
    height: areaH - 4
    radius: 12
    color: Theme.card
    border.color: isSelected ? Theme.accent : condition === "lost" ? Theme.bad : Theme.faint
    border.width: isSelected ? 3 : 1
}
