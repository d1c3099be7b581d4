// SPDX-License-Identifier: MIT
// Where to look: at a broker, or at a recording.
import QtQuick 2.15
import QtQuick.Layouts 1.15
import "."

Rectangle {
    id: page

    property bool closable: false

    signal openRecording()
    signal closed()

    function connect() {
        if (!ready.enabled)
            return
        if (picture.connectTo(host.text.trim(), Number(port.text), installation.text.trim()))
            closed()
    }

    objectName: "start"
    color: Theme.background
    onVisibleChanged: if (visible) host.input.forceActiveFocus()
    Component.onCompleted: if (visible) host.input.forceActiveFocus()

    MouseArea { anchors.fill: parent } // what lies below is not meant

    ColumnLayout {
        anchors.centerIn: parent
        width: Math.max(280, Math.min(parent.width - 32, 560))
        spacing: 12

        Text {
            Layout.fillWidth: true
            text: page.closable ? qsTr("Look at another house") : qsTr("No broker yet")
            textFormat: Text.PlainText
            color: Theme.text
            font { pixelSize: Theme.large; bold: true }
            wrapMode: Text.WordWrap
        }
        Text {
            Layout.fillWidth: true
            text: qsTr("Name the broker of a box, such as 192.168.1.11. The picture fills as soon as its nodes speak; "
                       + "nothing is ever sent to them.")
            textFormat: Text.PlainText
            color: Theme.quiet
            font.pixelSize: Theme.medium
            wrapMode: Text.WordWrap
        }
        Text {
            objectName: "problem"
            Layout.fillWidth: true
            visible: text !== ""
            text: picture.notice || picture.alarm
            textFormat: Text.PlainText
            color: Theme.bad
            font.pixelSize: Theme.medium
            wrapMode: Text.WrapAtWordBoundaryOrAnywhere
            maximumLineCount: 4
            elide: Text.ElideRight
        }
        RowLayout {
            Layout.fillWidth: true
            spacing: 12
            Field {
                id: host
                objectName: "host"
                Layout.fillWidth: true
                label: qsTr("Host")
                text: "localhost"
                onAccepted: page.connect()
            }
            Field {
                id: port
                objectName: "port"
                Layout.maximumWidth: 110
                label: qsTr("Port")
                text: "1883"
                input.validator: IntValidator { bottom: 1; top: 65535 }
                input.inputMethodHints: Qt.ImhDigitsOnly
                onAccepted: page.connect()
            }
        }
        Field {
            id: installation
            objectName: "installation"
            Layout.fillWidth: true
            label: qsTr("Installation (empty: all that are heard)")
            onAccepted: page.connect()
        }
        RowLayout {
            Layout.fillWidth: true
            Layout.topMargin: 4
            spacing: Theme.gap
            TouchButton {
                id: ready
                objectName: "connect"
                text: qsTr("Connect")
                enabled: host.text.trim() !== "" && port.input.acceptableInput
                onClicked: page.connect()
            }
            TouchButton {
                objectName: "open"
                text: qsTr("Open a recording…")
                onClicked: page.openRecording()
            }
            TouchButton {
                objectName: "cancel"
                visible: page.closable
                text: qsTr("Cancel")
                onClicked: page.closed()
            }
            Item { Layout.fillWidth: true }
        }
    }
}
