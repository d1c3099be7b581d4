// SPDX-License-Identifier: MIT
// A line to type into, with its name above.
import QtQuick 2.15
import QtQuick.Layouts 1.15
import QtQuick.Templates 2.15 as T
import "."

ColumnLayout {
    id: field

    property string label
    property alias text: input.text
    property alias input: input

    signal accepted()

    spacing: 2

    Text {
        Layout.fillWidth: true
        text: field.label
        textFormat: Text.PlainText
        color: Theme.quiet
        font.pixelSize: Theme.small
        elide: Text.ElideRight
    }
    T.TextField {
        id: input
        Layout.fillWidth: true
        implicitHeight: Theme.touch
        leftPadding: 12
        rightPadding: 12
        verticalAlignment: TextInput.AlignVCenter
        color: Theme.text
        selectionColor: Theme.accent
        selectedTextColor: Theme.accentText
        font.pixelSize: Theme.medium
        selectByMouse: true
        Accessible.name: field.label
        onAccepted: field.accepted()
        background: Rectangle {
            radius: 8
            color: Theme.raised
            border.color: input.activeFocus ? Theme.accent : Theme.line
            border.width: input.activeFocus ? 2 : 1
        }
    }
}
