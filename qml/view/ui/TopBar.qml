// SPDX-License-Identifier: MIT
// What is watched, what is wrong with it, and how much passes.
import QtQuick 2.15
import QtQuick.Layouts 1.15
import "."

RowLayout {
    id: bar

    property bool small: false

    signal another()

    spacing: Theme.gap

    Text {
        objectName: "title"
        Layout.fillWidth: true
        Layout.minimumWidth: 80
        Layout.preferredWidth: bar.small ? 150 : 360
        Layout.maximumWidth: picture.alarm === "" ? Infinity : bar.small ? 150 : 360
        text: picture.title
        textFormat: Text.PlainText
        color: Theme.text
        font { pixelSize: bar.small ? Theme.medium : Theme.large; bold: true }
        elide: Text.ElideMiddle
    }
    Item {
        visible: picture.alarm !== ""
        Layout.fillWidth: true
        Layout.minimumWidth: 100
        Layout.preferredWidth: 400
        implicitHeight: 40

        Rectangle {
            objectName: "alarm"
            readonly property string text: picture.alarm
            width: Math.min(parent.width, alarm.implicitWidth + 24)
            height: parent.height
            radius: 8
            color: Theme.badCard
            border { color: Theme.bad; width: 1 }

            Text {
                id: alarm
                anchors { fill: parent; leftMargin: 12; rightMargin: 12 }
                text: picture.alarm
                textFormat: Text.PlainText
                color: Theme.bad
                font { pixelSize: bar.small ? Theme.small : Theme.medium; bold: true }
                wrapMode: Text.WordWrap
                maximumLineCount: 2
                elide: Text.ElideRight
                verticalAlignment: Text.AlignVCenter
            }
            MouseArea {
                id: pointed
                anchors.fill: parent
                hoverEnabled: true
            }
        }
    }
    Figure {
        objectName: "rate"
        name: bar.small ? "" : qsTr("packets")
        value: Theme.perSecond(picture.rate)
    }
    Figure {
        objectName: "roundTrip"
        visible: picture.roundTrip >= 0
        name: bar.small ? "" : qsTr("round trip")
        value: qsTr("%1 ms").arg(picture.roundTrip.toFixed(picture.roundTrip < 100 ? 1 : 0))
    }
    TouchButton {
        objectName: "another"
        text: qsTr("Open…")
        onClicked: bar.another()
    }
    TouchButton {
        objectName: "dark"
        text: Theme.dark ? qsTr("Light") : qsTr("Dark")
        onClicked: Theme.dark = !Theme.dark
    }
    Tip {
        parent: bar.parent
        z: 10
        text: pointed.containsMouse && alarm.truncated ? picture.alarm : ""
        atX: bar.x + 120
        atY: bar.y + bar.height
    }
}
