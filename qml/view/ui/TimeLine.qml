// SPDX-License-Identifier: MIT
// From the oldest that is known to the newest, with a mark for everything that happened; to look back.
import QtQuick 2.15
import "."

Item {
    id: line

    readonly property real begin: picture.begin.getTime()
    readonly property real span: Math.max(1, picture.end.getTime() - begin)
    readonly property real shown: Math.max(0, Math.min(1, (picture.time.getTime() - begin) / span))
    readonly property real known: Math.max(0, Math.min(1, (picture.edge.getTime() - begin) / span))
    readonly property bool usable: !isNaN(picture.begin) && !isNaN(picture.end)

    property bool byKeyboard: false // a frame helps only those who use it

    function showAt(place) {
        if (usable)
            picture.show(new Date(begin + Math.max(0, Math.min(1, place)) * span))
    }
    function move(seconds) {
        showAt((picture.time.getTime() + 1000 * seconds - begin) / span)
    }

    objectName: "timeline"
    implicitHeight: Theme.touch
    activeFocusOnTab: true
    onActiveFocusChanged: if (!activeFocus) byKeyboard = false
    Keys.onReleased: byKeyboard = true // that of Tab as well
    Keys.onLeftPressed: event => move(event.modifiers & Qt.ShiftModifier ? -10 : -1)
    Keys.onRightPressed: event => move(event.modifiers & Qt.ShiftModifier ? 10 : 1)
    Keys.onPressed: event => {
        event.accepted = true
        switch (event.key) {
        case Qt.Key_PageUp: move(-60); break
        case Qt.Key_PageDown: move(60); break
        case Qt.Key_Home: showAt(0); break
        case Qt.Key_End: picture.goLive(); break
        default: event.accepted = false
        }
    }
    Accessible.role: Accessible.Slider
    Accessible.name: qsTr("Time shown: %1").arg(Theme.moment(picture.time))

    Rectangle { // the whole
        id: track
        x: 10
        y: 8
        width: parent.width - 20
        height: 16
        radius: 4
        color: Theme.raised
        border { color: Theme.faint; width: 1 }

        Rectangle { // what is known of it
            width: parent.width * line.known
            height: parent.height
            radius: 4
            color: Theme.faint
        }
        Repeater {
            model: picture.events
            Rectangle {
                required property real place
                required property string tone
                x: track.width * place - 1
                y: tone === "plain" ? 5 : 1
                width: 2
                height: tone === "plain" ? 6 : 14
                visible: place >= 0 && place <= 1
                color: Theme.toneColor(tone)
            }
        }
    }
    Rectangle { // the time that is shown
        x: track.x + track.width * line.shown - width / 2
        y: 3
        width: 10
        height: 26
        radius: 4
        color: Theme.accent
        border { color: Theme.card; width: 1 }
        visible: line.usable
    }
    Text {
        x: track.x
        y: 29
        text: line.usable ? Theme.clock(picture.begin) : ""
        textFormat: Text.PlainText
        color: Theme.quiet
        font.pixelSize: Theme.tiny
    }
    Text {
        objectName: "time"
        anchors.horizontalCenter: parent.horizontalCenter
        y: 28
        text: line.usable ? Theme.moment(picture.time) : ""
        textFormat: Text.PlainText
        color: Theme.text
        font { pixelSize: Theme.small; bold: true }
    }
    Text {
        anchors { right: parent.right; rightMargin: 10 }
        y: 29
        text: line.usable ? Theme.clock(picture.end) : ""
        textFormat: Text.PlainText
        color: Theme.quiet
        font.pixelSize: Theme.tiny
    }
    MouseArea {
        anchors.fill: parent
        onPressed: mouse => {
            line.forceActiveFocus()
            line.byKeyboard = false
            line.showAt((mouse.x - track.x) / track.width)
        }
        onPositionChanged: mouse => line.showAt((mouse.x - track.x) / track.width)
        onWheel: wheel => line.move(-(wheel.angleDelta.y || wheel.angleDelta.x) / 120 * Math.max(1, Math.round(line.span / 100000)))
    }
    Rectangle {
        anchors.fill: parent
        visible: line.activeFocus && line.byKeyboard
        color: "transparent"
        radius: 6
        border { color: Theme.text; width: 2 }
    }
}
