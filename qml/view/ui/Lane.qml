// SPDX-License-Identifier: MIT
// One direction of a bridge: a line from left to right with an arrow head, and the dots that travel along it.
// Whoever uses it turns it to where it leads.
import QtQuick 2.15
import "."

Item {
    id: lane

    property string way: "unknown"
    property int pulse: 0
    property bool isSelected: false
    property bool plain: false // one of many: only what is broken or selected stands out

    readonly property bool broken: way === "down" || way === "missing"
    readonly property color color: broken ? Theme.bad : way === "up" && (isSelected || !plain) ? Theme.accent : Theme.line
    readonly property int thickness: isSelected ? 4 : plain && !broken ? 1 : 2

    property bool ready: false // what passed before it stood in its place is not shown

    onPulseChanged: if (ready && !travel.running) travel.start()
    Component.onCompleted: ready = true

    height: 0

    Rectangle {
        y: -height / 2
        width: parent.width
        height: lane.thickness
        visible: lane.way === "up"
        color: lane.color
    }
    Repeater { // dashes
        model: lane.way === "up" ? 0 : Math.floor((lane.width + 8) / 16)
        Rectangle {
            x: index * 16
            y: -height / 2
            width: lane.way === "unknown" ? 3 : 8
            height: lane.thickness
            color: lane.color
        }
    }
    Repeater { // the head
        model: [40, -40]
        Rectangle {
            x: lane.width * 0.7 - width
            y: -height / 2
            width: 12
            height: 3
            color: lane.color
            transformOrigin: Item.Right
            rotation: modelData
        }
    }
    Rectangle {
        id: dot
        y: -4
        width: 8
        height: 8
        color: Theme.packet
        visible: travel.running
    }
    NumberAnimation {
        id: travel
        target: dot
        property: "x"
        from: 0
        to: lane.width
        duration: 600
    }
}
