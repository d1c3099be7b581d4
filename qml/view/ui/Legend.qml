// SPDX-License-Identifier: MIT
// What the signs mean; stands where the details are as long as nothing is selected.
import QtQuick 2.15
import QtQuick.Layouts 1.15
import "."

Rectangle {
    id: legend

    radius: 12
    color: Theme.card
    border { color: Theme.faint; width: 1 }
    clip: true

    component Words: Text {
        Layout.fillWidth: true
        textFormat: Text.PlainText
        color: Theme.text
        font.pixelSize: Theme.small
        wrapMode: Text.WordWrap
    }
    component Sign: Item {
        Layout.preferredWidth: 56
        Layout.preferredHeight: 28
    }

    GridLayout {
        anchors { left: parent.left; right: parent.right; top: parent.top; margins: 14 }
        columns: 2
        columnSpacing: 10
        rowSpacing: 6

        Words {
            Layout.columnSpan: 2
            Layout.bottomMargin: 6
            text: qsTr("Select a node, a broker or a bridge to see all that is known of it.")
            color: Theme.quiet
        }
        Sign { NodeMark { anchors.centerIn: parent; width: 28; height: 28; role: "server"; master: true } }
        Words { text: qsTr("server that is master") }
        Sign { NodeMark { anchors.centerIn: parent; width: 28; height: 28; role: "server" } }
        Words { text: qsTr("other server") }
        Sign { NodeMark { anchors.centerIn: parent; width: 16; height: 16 } }
        Words { text: qsTr("panel that listens to its master") }
        Sign { NodeMark { anchors.centerIn: parent; width: 16; height: 16; ready: false } }
        Words { text: qsTr("panel that does not (yet)") }
        Sign { NodeMark { anchors.centerIn: parent; width: 16; height: 16; presence: "gone" } }
        Words { text: qsTr("gone") }
        Sign { NodeMark { anchors.centerIn: parent; width: 16; height: 16; presence: "unknown" } }
        Words { text: qsTr("known only from what a broker has kept") }
        Sign { NodeMark { anchors.centerIn: parent; width: 16; height: 16; encoded: true } }
        Words { text: qsTr("its payloads are Base64, which nodes do not understand") }
        Sign { Lane { x: 2; y: 14; width: 52; way: "up" } }
        Words { text: qsTr("bridge, one direction: packets pass") }
        Sign { Lane { x: 2; y: 14; width: 52; way: "missing" } }
        Words { text: qsTr("down, or nothing comes over it") }
        Sign { Lane { x: 2; y: 14; width: 52; way: "unknown" } }
        Words { text: qsTr("not known") }
        Sign { Rectangle { anchors.centerIn: parent; width: 8; height: 8; color: Theme.packet } }
        Words { text: qsTr("a packet, or several at once") }
    }
}
