// SPDX-License-Identifier: MIT
// The time line with what belongs to it: play, speed, and back to the newest.
import QtQuick 2.15
import QtQuick.Layouts 1.15
import "."

RowLayout {
    id: controls

    property bool small: false
    property string sheet: ""

    spacing: 4

    TouchButton {
        objectName: "play"
        Layout.preferredWidth: 76
        visible: picture.recording
        text: picture.playing ? qsTr("Pause") : qsTr("Play")
        onClicked: picture.playing ? picture.pause() : picture.play()
    }
    TouchButton {
        objectName: "speed"
        Layout.preferredWidth: 60
        visible: picture.recording
        text: qsTr("%1×").arg(picture.speed)
        hint: qsTr("Speed %1").arg(picture.speed)
        onClicked: picture.speed = picture.speed < 10 ? 10 : picture.speed < 60 ? 60 : 1
    }
    TimeLine {
        Layout.fillWidth: true
    }
    Text {
        visible: picture.loading
        text: qsTr("Reading…")
        textFormat: Text.PlainText
        color: Theme.quiet
        font.pixelSize: Theme.small
    }
    TouchButton {
        objectName: "live"
        Layout.preferredWidth: 64
        text: picture.recording ? qsTr("End") : qsTr("Live")
        hint: qsTr("Show the newest")
        chosen: picture.live
        onClicked: picture.goLive()
    }
    Repeater { // where there is no room for both below
        model: controls.small ? [["events", qsTr("Events")], ["plot", qsTr("Plot")]] : []
        TouchButton {
            objectName: "sheet_" + modelData[0]
            text: modelData[1]
            chosen: controls.sheet === modelData[0]
            onClicked: controls.sheet = chosen ? "" : modelData[0]
        }
    }
}
