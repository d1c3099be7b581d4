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

    property bool plain: false

    readonly property real angle: Math.atan2(toY - fromY, toX - fromX) * 180 / Math.PI
    readonly property real length: Math.hypot(toX - fromX, toY - fromY)

    // How far a point is from it.
    function distance(x, y) {
        const dx = toX - fromX
        const dy = toY - fromY
        const along = length > 0 ? Math.max(0, Math.min(1, ((x - fromX) * dx + (y - fromY) * dy) / (length * length))) : 0
        return Math.hypot(fromX + along * dx - x, fromY + along * dy - y)
    }

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
            plain: bridge.plain
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
            plain: bridge.plain
        }
    }
}
