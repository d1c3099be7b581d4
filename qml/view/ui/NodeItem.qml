// SPDX-License-Identifier: MIT
// A node in the picture, with its name where there is room.
import QtQuick 2.15
import "."

Item {
    id: node

    required property var model
    required property string nodeId
    required property string role
    required property string presence
    required property bool master
    required property bool ready
    required property bool encoded
    required property real posX
    required property real posY
    required property bool labelled
    required property real labelX
    required property real labelY
    required property real labelW
    required property bool isSelected

    readonly property real size: model.size || (role === "server" ? 28 : 16)

    objectName: "node_" + nodeId
    x: posX - size / 2
    y: posY - size / 2
    width: size
    height: size
    Accessible.role: Accessible.Graphic
    Accessible.name: nodeId

    Rectangle {
        anchors { fill: parent; margins: -5 }
        visible: node.isSelected
        radius: 8
        color: "transparent"
        border { color: Theme.text; width: 2 }
    }
    NodeMark {
        anchors.fill: parent
        role: node.role
        presence: node.presence
        master: node.master
        ready: node.ready
        encoded: node.encoded
    }
    Rectangle { // what crosses a name does not strike it out
        visible: node.labelled
        x: label.x + (label.horizontalAlignment === Text.AlignRight ? label.width - width
                      : label.horizontalAlignment === Text.AlignLeft ? 0 : (label.width - width) / 2)
        y: label.y + 1
        width: label.contentWidth
        height: label.height - 2
        color: Theme.card
        opacity: 0.9
    }
    Text {
        id: label
        visible: node.labelled
        x: node.labelX - node.x
        y: node.labelY - node.y
        width: node.labelW
        height: 16
        text: node.nodeId
        textFormat: Text.PlainText
        color: node.presence === "here" ? Theme.text : Theme.quiet
        font { pixelSize: Theme.tiny; bold: node.master }
        elide: Text.ElideMiddle
        verticalAlignment: Text.AlignVCenter
        horizontalAlignment: node.labelX + node.labelW <= node.posX ? Text.AlignRight
                           : node.labelX >= node.posX ? Text.AlignLeft : Text.AlignHCenter
    }
}
