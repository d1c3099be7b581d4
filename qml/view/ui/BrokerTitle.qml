// SPDX-License-Identifier: MIT
// The name of a broker and its state, above the lines that cross its region.
import QtQuick 2.15
import "."

Rectangle {
    id: label

    required property var model
    required property string name
    required property string problem
    required property real areaX
    required property real areaY
    required property real areaW

    readonly property real space: areaW - 16
    readonly property string condition: model.state // an Item has a state of its own
    readonly property string word: {
        switch (condition) {
        case "connecting": return qsTr("connecting")
        case "lost": return problem ? qsTr("lost: %1").arg(problem) : qsTr("lost")
        case "unheard": return qsTr("not listened to")
        case "recording": return qsTr("recorded")
        }
        return ""
    }
    readonly property string words: word ? name + "\n" + word : name

    x: areaX + 8
    y: areaY + 6
    width: stateText.visible ? stateText.x + stateText.width + 4 : title.width + 8
    height: 20
    color: Theme.card

    Text {
        id: title
        x: 4
        width: Math.min(implicitWidth, label.space - 8)
        height: 20
        text: label.name
        textFormat: Text.PlainText
        color: Theme.text
        font { pixelSize: Theme.small; bold: true }
        elide: Text.ElideMiddle
        verticalAlignment: Text.AlignVCenter
    }
    Text {
        id: stateText
        x: title.width + 12
        width: Math.max(0, Math.min(implicitWidth, label.space - x - 4))
        height: 20
        visible: width > 30
        text: label.word
        textFormat: Text.PlainText
        color: label.condition === "lost" ? Theme.bad : Theme.quiet
        font.pixelSize: Theme.small
        elide: Text.ElideRight
        verticalAlignment: Text.AlignVCenter
    }
}
