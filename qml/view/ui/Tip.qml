// SPDX-License-Identifier: MIT
// A few words beside the pointer, inside of what it stands on.
import QtQuick 2.15
import "."

Rectangle {
    id: tip

    property string text
    property real atX
    property real atY

    x: Math.max(4, Math.min(atX + 14, parent.width - width - 4))
    y: atY + 20 + height > parent.height ? Math.max(4, atY - height - 10) : atY + 20
    width: Math.min(words.implicitWidth, 320) + 16
    height: words.height + 10
    visible: text !== ""
    radius: 6
    color: Theme.text

    Text {
        id: words
        x: 8
        y: 5
        width: Math.min(implicitWidth, 320)
        text: tip.text
        textFormat: Text.PlainText
        color: Theme.card
        font.pixelSize: Theme.small
        wrapMode: Text.WrapAtWordBoundaryOrAnywhere
    }
}
