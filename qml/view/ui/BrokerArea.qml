// SPDX-License-Identifier: MIT
// The region of a broker, with its name and its state.
import QtQuick 2.15
import "."

Rectangle {
    id: area

    required property var model
    required property string name
    required property string problem
    required property real areaX
    required property real areaY
    required property real areaW
    required property real areaH
    required property bool isSelected

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

    x: areaX + 2
    y: areaY + 2
    width: areaW - 4
    height: areaH - 4
    radius: 12
    color: Theme.card
    border.color: isSelected ? Theme.accent : condition === "lost" ? Theme.bad : Theme.faint
    border.width: isSelected ? 3 : 1

    Text {
        id: title
        x: 10
        y: 5
        width: Math.min(implicitWidth, parent.width - 20)
        height: 20
        text: area.name
        textFormat: Text.PlainText
        color: Theme.text
        font { pixelSize: Theme.small; bold: true }
        elide: Text.ElideMiddle
        verticalAlignment: Text.AlignVCenter
    }
    Text {
        anchors { left: title.right; leftMargin: 8; right: parent.right; rightMargin: 10 }
        y: 5
        height: 20
        visible: width > 30
        text: area.word
        textFormat: Text.PlainText
        color: area.condition === "lost" ? Theme.bad : Theme.quiet
        font.pixelSize: Theme.small
        elide: Text.ElideRight
        verticalAlignment: Text.AlignVCenter
    }
}
