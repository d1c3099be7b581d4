// SPDX-License-Identifier: MIT
// The sign of a node: a server or a panel; master or not; there, gone or unknown.
import QtQuick 2.15
import "."

Rectangle {
    id: mark

    property string role: "client"
    property string presence: "here"
    property bool master: false
    property bool ready: true
    property bool encoded: false

    readonly property bool server: role === "server"
    readonly property bool filled: presence === "here" && (server || ready)
    readonly property color own: presence !== "here" ? Theme.line : master ? Theme.master : Theme.accent

    radius: server ? 6 : 3
    color: filled ? own : Theme.card
    border.color: own
    border.width: 2

    Crown {
        anchors.centerIn: parent
        visible: mark.master
        width: parent.width * 0.6
        height: width
        color: mark.filled ? Theme.accentText : mark.own
    }
    Column {
        anchors.centerIn: parent
        visible: mark.server && !mark.master
        spacing: 3
        Repeater {
            model: mark.server ? 3 : 0
            Rectangle {
                width: mark.width * 0.55
                height: 3
                color: mark.filled ? Theme.accentText : mark.own
            }
        }
    }
    Repeater { // gone: a cross
        model: mark.presence === "gone" ? [45, -45] : []
        Rectangle {
            anchors.centerIn: parent
            width: mark.width * 1.2
            height: 2
            color: Theme.bad
            rotation: modelData
        }
    }
    Rectangle { // speaks what nobody understands
        anchors { right: parent.right; top: parent.top; margins: -4 }
        width: 9
        height: 9
        visible: mark.encoded
        color: Theme.bad
    }
}
