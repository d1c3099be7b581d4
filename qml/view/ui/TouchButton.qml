// SPDX-License-Identifier: MIT
// A button for a finger or the keyboard.
import QtQuick 2.15
import QtQuick.Templates 2.15 as T
import "."

T.Button {
    id: button

    property string hint: text // what it does, where the text is a sign
    property bool chosen: false // by whoever uses it: "checked" would change with every click

    implicitWidth: Math.max(Theme.touch, label.implicitWidth + 24)
    implicitHeight: Theme.touch
    focusPolicy: Qt.StrongFocus
    opacity: enabled ? 1 : 0.45
    font.pixelSize: Theme.medium
    Keys.onReturnPressed: click()
    Keys.onEnterPressed: click()
    Accessible.name: hint

    contentItem: Text {
        id: label
        text: button.text
        textFormat: Text.PlainText
        font: button.font
        color: button.down || button.chosen ? Theme.accentText : Theme.accent
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }
    background: Item {
        Rectangle { // what is touched may be larger than what is seen
            anchors { fill: parent; topMargin: 4; bottomMargin: 4 }
            radius: 8
            color: button.down || button.chosen ? Theme.accent : button.hovered ? Theme.raised : "transparent"
            border.color: button.visualFocus ? Theme.text : Theme.line
            border.width: button.visualFocus ? 3 : 1
        }
    }
}
