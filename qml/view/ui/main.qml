// SPDX-License-Identifier: MIT
// A house as it is now and as it was: its brokers, bridges, servers and panels, and what passes between them.
import QtQuick 2.15
import QtQuick.Layouts 1.15
import QtQuick.Window 2.15
import "."

Window {
    id: window

    readonly property bool small: width < 1100 || height < 660
    property bool asking: false // for another house

    function openRecording() {
        dialog.active = true
        if (dialog.item)
            dialog.item.open()
    }

    width: 1280
    height: 800
    minimumWidth: 640
    minimumHeight: 400
    visible: true
    title: picture.title ? qsTr("%1 – House").arg(picture.title) : qsTr("House")
    color: Theme.background
    Component.onCompleted: Theme.dark = typeof startDark !== "undefined" && startDark

    Shortcut {
        sequence: StandardKey.Open
        onActivated: window.openRecording()
    }
    Shortcut {
        sequence: "Escape"
        onActivated: {
            if (window.asking)
                window.asking = false
            else if (picture.selected !== "")
                picture.select("", "")
            else
                controls.sheet = ""
        }
    }
    Loader { // so that the picture also comes up where there is no dialog
        id: dialog
        active: false
        source: "OpenDialog.qml"
        Connections {
            target: dialog.item
            function onAccepted() {
                if (picture.open(dialog.item.fileUrl))
                    window.asking = false
            }
        }
    }

    ColumnLayout {
        anchors { fill: parent; leftMargin: Theme.gap; rightMargin: Theme.gap; bottomMargin: window.small ? 0 : Theme.gap }
        spacing: window.small ? 0 : 4
        enabled: !start.visible

        TopBar {
            Layout.fillWidth: true
            Layout.preferredHeight: Theme.touch
            small: window.small
            onAnother: window.asking = true
        }
        RowLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: Theme.gap

            Item {
                id: middle
                Layout.fillWidth: true
                Layout.fillHeight: true
                HouseCanvas {
                    id: canvas
                    anchors.fill: parent
                    focus: true
                }
                Loader { // over the picture where there is no room beside it
                    id: sheet
                    anchors { left: parent.left; right: parent.right; bottom: parent.bottom }
                    height: Math.min(200, parent.height - 40)
                    active: window.small && controls.sheet !== ""
                    source: controls.sheet === "plot" ? "Plot.qml" : "EventList.qml"
                }
                Details { // on the side where it does not hide what it speaks of
                    x: canvas.selectedRight ? 0 : parent.width - width
                    height: parent.height
                    width: Math.min(parent.width, 360)
                    visible: window.small && picture.selected !== ""
                }
            }
            Item {
                Layout.preferredWidth: 340
                Layout.fillHeight: true
                visible: !window.small
                Legend {
                    anchors.fill: parent
                    visible: picture.selected === ""
                }
                Details {
                    anchors.fill: parent
                    visible: !window.small && picture.selected !== ""
                }
            }
        }
        Controls {
            id: controls
            Layout.fillWidth: true
            small: window.small
        }
        RowLayout {
            Layout.fillWidth: true
            Layout.preferredHeight: 196
            Layout.maximumHeight: 196
            visible: !window.small
            spacing: Theme.gap
            EventList {
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.preferredWidth: 10
            }
            Loader {
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.preferredWidth: 10
                active: !window.small
                source: "Plot.qml"
            }
        }
    }
    StartPage {
        id: start
        anchors.fill: parent
        visible: window.asking || picture.blank === true
        closable: picture.blank !== true
        onOpenRecording: window.openRecording()
        onClosed: window.asking = false
    }
}
