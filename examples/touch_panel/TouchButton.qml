// SPDX-License-Identifier: MIT
// A button for a finger or the keyboard.
import QtQuick 2.15
import QtQuick.Templates 2.15 as T
import "."

T.Button {
    id: button

    implicitWidth: Math.max(Theme.touch, label.implicitWidth + 2 * Theme.gap)
    implicitHeight: Theme.touch
    focusPolicy: Qt.StrongFocus
    opacity: enabled ? 1 : 0.45
    font.pixelSize: Theme.medium
    Keys.onReturnPressed: click()
    Keys.onEnterPressed: click()
    Accessible.name: text

    contentItem: Text {
        id: label
        text: button.text
        font: button.font
        color: button.down ? Theme.accentText : Theme.accent
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }
    background: Rectangle {
        radius: 12
        color: button.down ? Theme.accent : "transparent"
        border.color: button.activeFocus ? Theme.accent : Theme.line
        border.width: button.activeFocus ? 3 : 1
    }
}
