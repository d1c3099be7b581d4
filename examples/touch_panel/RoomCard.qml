// SPDX-License-Identifier: MIT
// A room: what was measured there, and what is wanted.
import QtQuick 2.15
import QtQuick.Layouts 1.15
import "."

Rectangle {
    id: card

    required property string name
    required property real wanted
    property real measured: NaN
    property bool current: true  // what is shown is from now
    property bool changeable: true

    signal wish(real degrees)

    function degrees(value) {
        return isNaN(value) ? "–" : qsTr("%1 °C").arg(Number(value).toLocaleString(Qt.locale(), "f", 1))
    }

    color: Theme.card
    radius: 16

    ColumnLayout {
        anchors { fill: parent; margins: Theme.gap }
        spacing: 2

        Text {
            objectName: "room"
            Layout.fillWidth: true
            text: card.name
            color: Theme.text
            font.pixelSize: Theme.medium
            elide: Text.ElideRight
        }
        Text {
            objectName: "measured"
            Layout.fillWidth: true
            text: card.degrees(card.measured)
            color: card.current ? Theme.text : Theme.quiet
            font.pixelSize: Theme.large
        }
        Item { Layout.fillHeight: true }
        RowLayout {
            Layout.fillWidth: true
            spacing: Theme.gap

            TouchButton {
                objectName: "cooler"
                text: "−"
                font.pixelSize: 32
                enabled: card.changeable && card.wanted > 5
                Accessible.name: qsTr("%1 cooler").arg(card.name)
                onClicked: card.wish(card.wanted - 0.5)
            }
            ColumnLayout {
                spacing: 0
                Layout.fillWidth: true
                Text {
                    Layout.fillWidth: true
                    horizontalAlignment: Text.AlignHCenter
                    text: qsTr("wanted")
                    color: Theme.quiet
                    font.pixelSize: Theme.small
                }
                Text {
                    objectName: "wanted"
                    Layout.fillWidth: true
                    horizontalAlignment: Text.AlignHCenter
                    text: card.degrees(card.wanted)
                    color: card.current ? Theme.text : Theme.quiet
                    font.pixelSize: Theme.medium
                }
            }
            TouchButton {
                objectName: "warmer"
                text: "+"
                font.pixelSize: 32
                enabled: card.changeable && card.wanted < 30
                Accessible.name: qsTr("%1 warmer").arg(card.name)
                onClicked: card.wish(card.wanted + 0.5)
            }
        }
    }
}
