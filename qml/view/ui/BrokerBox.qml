// SPDX-License-Identifier: MIT
// A broker in the middle of its region, with what passes through it.
import QtQuick 2.15
import "."

Rectangle {
    id: box

    required property var model
    required property string name
    required property real rate
    required property real posX
    required property real posY
    required property bool isSelected

    readonly property string condition: model.state // an Item has a state of its own

    objectName: "broker_" + name
    x: posX - width / 2
    y: posY - height / 2
    width: 64
    height: 36
    radius: 18
    color: Theme.raised
    border.color: condition === "lost" ? Theme.bad : condition === "listening" || condition === "recording" ? Theme.accent : Theme.line
    border.width: isSelected ? 4 : 2
    Accessible.role: Accessible.Graphic
    Accessible.name: name

    Text {
        anchors { fill: parent; margins: 4 }
        text: box.condition === "lost" ? qsTr("lost") : box.condition === "unheard" ? qsTr("unheard")
            : box.condition === "connecting" ? "…" : Theme.perSecond(box.rate)
        textFormat: Text.PlainText
        color: box.condition === "lost" ? Theme.bad : Theme.text
        font.pixelSize: Theme.small
        fontSizeMode: Text.HorizontalFit
        minimumPixelSize: 10
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }
}
