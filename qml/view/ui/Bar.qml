// SPDX-License-Identifier: MIT
// Shows how far something is scrolled.
import QtQuick 2.15
import QtQuick.Templates 2.15 as T
import "."

T.ScrollBar {
    id: bar

    property Flickable flickable

    x: parent.width - width
    height: parent.height
    z: 1
    orientation: Qt.Vertical
    size: flickable.visibleArea.heightRatio
    position: flickable.visibleArea.yPosition
    onPositionChanged: if (pressed) flickable.contentY = flickable.originY + position * flickable.contentHeight
    implicitWidth: 10
    visible: size < 1
    padding: 2
    contentItem: Rectangle {
        implicitWidth: 6
        radius: 3
        color: bar.pressed || bar.hovered ? Theme.quiet : Theme.line
    }
}
