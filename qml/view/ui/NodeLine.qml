// SPDX-License-Identifier: MIT
// From a node to its broker, with a dot that travels along it when the node speaks.
import QtQuick 2.15
import "."

Item {
    id: line

    required property real posX
    required property real posY
    required property real brokerX
    required property real brokerY
    required property string presence
    required property bool isSelected
    required property int pulse

    property bool ready: false // what passed before it stood in its place is not shown

    onPulseChanged: if (ready && !travel.running && presence !== "gone") travel.start()
    Component.onCompleted: ready = true

    Rectangle {
        x: line.posX
        y: line.posY
        width: Math.hypot(line.brokerX - line.posX, line.brokerY - line.posY)
        height: line.isSelected ? 2 : 1
        visible: line.presence === "here" || line.isSelected
        color: line.isSelected ? Theme.accent : Theme.faint
        transformOrigin: Item.TopLeft
        rotation: Math.atan2(line.brokerY - line.posY, line.brokerX - line.posX) * 180 / Math.PI
    }
    Rectangle {
        id: dot
        width: 6
        height: 6
        color: Theme.packet
        visible: travel.running
    }
    ParallelAnimation {
        id: travel
        NumberAnimation { target: dot; property: "x"; from: line.posX - 3; to: line.brokerX - 3; duration: 500 }
        NumberAnimation { target: dot; property: "y"; from: line.posY - 3; to: line.brokerY - 3; duration: 500 }
    }
}
