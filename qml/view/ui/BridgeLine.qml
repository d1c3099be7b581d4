// SPDX-License-Identifier: MIT
// What joins two brokers: a lane for each direction.
import QtQuick 2.15
import "."

Item {
    id: bridge

    required property real fromX
    required property real fromY
    required property real toX
    required property real toY
    required property string there
    required property string back
    required property bool isSelected
    required property int pulseThere
    required property int pulseBack

    readonly property real angle: Math.atan2(toY - fromY, toX - fromX) * 180 / Math.PI
    readonly property real length: Math.hypot(toX - fromX, toY - fromY)

    Item {
        x: bridge.fromX
        y: bridge.fromY
        rotation: bridge.angle
        transformOrigin: Item.TopLeft

        Lane {
            y: -4
            width: bridge.length
            way: bridge.there
            pulse: bridge.pulseThere
            isSelected: bridge.isSelected
        }
        Lane {
            x: bridge.length
            y: 4
            width: bridge.length
            rotation: 180
            transformOrigin: Item.TopLeft
            way: bridge.back
            pulse: bridge.pulseBack
            isSelected: bridge.isSelected
        }
    }
}
