// SPDX-License-Identifier: MIT
// What is known at this moment, from when, and what is under way.
import QtQuick 2.15
import QtQuick.Layouts 1.15
import Flotrofobul 1.0
import "."

RowLayout {
    id: bar

    required property Panel house
    property bool waiting: false   // for an answer
    property bool unanswered: false
    property date now: new Date()

    readonly property bool troubled: house.state !== Panel.Following || unanswered
    readonly property string title: {
        switch (house.state) {
        case Panel.Offline: return qsTr("No connection to the house")
        case Panel.Connecting: return qsTr("Connecting…")
        case Panel.Searching: return qsTr("Waiting for the central unit")
        }
        return waiting ? qsTr("Asking the central unit…")
             : unanswered ? qsTr("The central unit does not answer") : qsTr("Connected")
    }
    readonly property string age: {
        if (isNaN(house.persistentTime.getTime()))
            return house.state === Panel.Following ? "" : qsTr("No values yet")
        const minutes = Math.floor((now - house.persistentTime) / 60000)
        if (!troubled && !house.persistentKept)
            return qsTr("Values of %1").arg(house.persistentTime.toLocaleTimeString(Qt.locale(), Locale.ShortFormat))
        if (house.persistentKept)
            return qsTr("Values from before")
        return minutes < 1 ? qsTr("Values less than a minute old")
             : minutes < 60 ? qsTr("Values %n minute(s) old", "", minutes)
                            : qsTr("Values %n hour(s) old", "", Math.floor(minutes / 60))
    }

    spacing: Theme.gap

    Rectangle {
        width: 16
        height: 16
        radius: bar.troubled ? 2 : 8
        color: bar.troubled ? Theme.warning : Theme.accent
    }
    ColumnLayout {
        spacing: 0
        Layout.fillWidth: true
        Text {
            objectName: "title"
            Layout.fillWidth: true
            text: bar.title
            color: bar.troubled ? Theme.warning : Theme.text
            font.pixelSize: Theme.medium
            elide: Text.ElideRight
        }
        Text {
            objectName: "age"
            Layout.fillWidth: true
            text: bar.age
            color: Theme.quiet
            font.pixelSize: Theme.small
            elide: Text.ElideRight
        }
    }
    Timer { // the age grows
        objectName: "clock"
        interval: 10000
        running: true
        repeat: true
        onTriggered: bar.now = new Date()
    }
    Connections {
        target: bar.house
        function onPersistentChanged() { bar.now = new Date() }
        function onStateChanged() { bar.now = new Date() }
    }
}
