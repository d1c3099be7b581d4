// SPDX-License-Identifier: MIT
// A figure with its name. As wide as the widest that is usual, so that nothing beside it moves.
import QtQuick 2.15
import "."

Column {
    property alias name: name.text
    property alias value: value.text

    width: Math.max(72, name.implicitWidth, value.implicitWidth)

    Text {
        id: value
        width: parent.width
        textFormat: Text.PlainText
        color: Theme.text
        font { pixelSize: Theme.medium; bold: true }
        horizontalAlignment: Text.AlignRight
    }
    Text {
        id: name
        width: parent.width
        visible: text !== ""
        textFormat: Text.PlainText
        color: Theme.quiet
        font.pixelSize: Theme.tiny
        horizontalAlignment: Text.AlignRight
    }
}
