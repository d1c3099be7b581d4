// SPDX-License-Identifier: MIT
// What passes over a bridge, or what does not.
import QtQuick 2.15
import "."

Rectangle {
    id: label

    required property var model
    required property string text
    required property var names
    required property string there
    required property string back
    required property real labelX
    required property real labelY
    required property bool isSelected

    property bool plain: false // one of many: only what is broken or selected is said

    readonly property string lineId: model.lineId || String(names)
    readonly property string words: String(names)
    readonly property bool broken: [there, back].some(way => way === "down" || way === "missing")

    objectName: "line_" + lineId
    x: labelX - width / 2
    y: labelY - height / 2
    width: Math.max(36, caption.implicitWidth + 16)
    height: 20
    visible: text !== "" && (!plain || broken || isSelected)
    radius: 10
    color: broken ? Theme.badCard : Theme.raised
    border.color: isSelected ? Theme.text : broken ? Theme.bad : Theme.faint
    border.width: isSelected ? 2 : 1

    Text {
        id: caption
        anchors.centerIn: parent
        text: label.text
        textFormat: Text.PlainText
        color: label.broken ? Theme.bad : Theme.text
        font.pixelSize: Theme.tiny
    }
}
