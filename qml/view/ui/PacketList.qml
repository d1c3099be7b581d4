// SPDX-License-Identifier: MIT
// The last packets of a node, the newest first. The one that is chosen shows all of itself.
import QtQuick 2.15
import "."

ListView {
    id: list

    objectName: "packets"
    model: picture.packets
    clip: true
    boundsBehavior: Flickable.StopAtBounds
    activeFocusOnTab: true
    keyNavigationEnabled: true
    currentIndex: -1
    Bar { parent: list; flickable: list }

    delegate: Rectangle {
        id: packet

        required property int index
        required property date time
        required property string topic
        required property string payload
        required property int qos
        required property bool retain

        readonly property bool open: ListView.isCurrentItem

        width: list.width - 12
        height: column.height + 8
        color: open ? Theme.raised : "transparent"
        radius: 6
        border { color: Theme.accent; width: open && list.activeFocus ? 2 : 0 }

        Column {
            id: column
            x: 6
            y: 4
            width: parent.width - 12
            Text {
                width: parent.width
                text: packet.time.toLocaleTimeString(Qt.locale("C"), "HH:mm:ss.zzz") + "   " + qsTr("QoS %1").arg(packet.qos)
                      + (packet.retain ? "   " + qsTr("kept") : "")
                textFormat: Text.PlainText
                color: Theme.quiet
                font.pixelSize: Theme.tiny
                elide: Text.ElideRight
            }
            Text {
                width: parent.width
                text: packet.topic
                textFormat: Text.PlainText
                color: Theme.text
                font.pixelSize: Theme.small
                elide: packet.open ? Text.ElideNone : Text.ElideLeft
                wrapMode: packet.open ? Text.WrapAnywhere : Text.NoWrap
            }
            Text {
                width: parent.width
                text: packet.payload === "" ? qsTr("(empty)")
                    : packet.open ? packet.payload : packet.payload.slice(0, 200).replace(/\s+/g, " ")
                textFormat: Text.PlainText
                color: packet.payload === "" ? Theme.quiet : Theme.text
                font { pixelSize: Theme.tiny; family: Theme.fixedFont }
                elide: packet.open ? Text.ElideNone : Text.ElideRight
                wrapMode: packet.open ? Text.WrapAnywhere : Text.NoWrap
            }
        }
        MouseArea {
            anchors.fill: parent
            onClicked: {
                list.currentIndex = packet.open ? -1 : packet.index
                list.forceActiveFocus()
            }
        }
    }
    Text {
        anchors { fill: parent; margins: 6 }
        visible: list.count === 0
        text: qsTr("No packet of it is kept.")
        textFormat: Text.PlainText
        color: Theme.quiet
        font.pixelSize: Theme.medium
        wrapMode: Text.WordWrap
    }
}
