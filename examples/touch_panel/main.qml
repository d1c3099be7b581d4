// SPDX-License-Identifier: MIT
// The wall panel of a home: its rooms, and honest words about what is known.
import QtQuick 2.15
import QtQuick.Layouts 1.15
import QtQuick.Window 2.15
import Flotrofobul 1.0
import "."

Window {
    id: window

    readonly property var names: ({kitchen: qsTr("Kitchen"), living_room: qsTr("Living room"),
                                   bedroom: qsTr("Bedroom"), bathroom: qsTr("Bathroom")})
    readonly property var wanted: house.persistent.temperatures || {}
    // As a text it changes only when a room comes or goes, and the cards keep the focus.
    readonly property string rooms: JSON.stringify(Object.keys(wanted).sort())
    property Request question
    property bool unanswered: false

    function watched(request) {
        request.failed.connect(() => { unanswered = house.state === Panel.Following })
        return request
    }
    function ask(wish) {
        question = watched(house.request("persistent", wish))
    }
    function wish(room, degrees) {
        ask({set: {[room]: degrees}})
    }

    width: 800
    height: 480
    visible: true
    title: qsTr("House") + " – " + bar.title
    color: Theme.background
    Component.onCompleted: Theme.dark = startDark

    Panel {
        id: house
        objectName: "house"
        configuration: houseConfiguration
        clientId: houseClientId
        onMasterFound: {
            window.ask({})
            window.watched(request("realtime"))
        }
        onMasterLost: window.unanswered = false // there is nobody to answer
        onStatusReceived: (kind, topic, payload, kept) => {
            if (!kept)
                window.unanswered = false // an answer that comes late is one
        }
    }
    Timer { // what was measured is soon stale, and a master that is silent shows itself
        objectName: "measuring"
        interval: 30000
        running: house.state === Panel.Following
        repeat: true
        onTriggered: window.watched(house.request("realtime"))
    }

    ColumnLayout {
        anchors { fill: parent; margins: Theme.gap }
        spacing: Theme.gap

        RowLayout {
            Layout.fillWidth: true
            spacing: Theme.gap

            StateBar {
                id: bar
                objectName: "bar"
                Layout.fillWidth: true
                house: house
                waiting: window.question !== null && window.question.pending
                unanswered: window.unanswered
            }
            TouchButton {
                objectName: "again"
                visible: window.unanswered
                enabled: !bar.waiting
                text: qsTr("Ask again")
                onClicked: window.ask({})
            }
            TouchButton {
                objectName: "colours"
                text: Theme.dark ? qsTr("Light") : qsTr("Dark")
                onClicked: Theme.dark = !Theme.dark
            }
        }
        GridView {
            id: grid

            readonly property int columns: Math.max(1, Math.floor(width / 360))

            objectName: "rooms"
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.margins: -Theme.gap / 2 // the cards have their own
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            cellWidth: Math.floor(width / columns)
            cellHeight: Math.max(196, Math.min(260, Math.floor(height / Math.ceil(count / columns))))
            model: JSON.parse(window.rooms)
            delegate: Item {
                id: cell
                required property string modelData
                width: grid.cellWidth
                height: grid.cellHeight
                RoomCard {
                    objectName: cell.modelData
                    anchors { fill: parent; margins: Theme.gap / 2 }
                    name: window.names[cell.modelData] || cell.modelData
                    wanted: cell.modelData in window.wanted ? window.wanted[cell.modelData] : NaN
                    measured: cell.modelData in house.realtime ? house.realtime[cell.modelData] : NaN
                    current: house.state === Panel.Following && !window.unanswered
                    changeable: house.state === Panel.Following && !(window.question && window.question.pending)
                    onWish: degrees => window.wish(cell.modelData, degrees)
                }
            }
            Text {
                objectName: "hint"
                anchors.centerIn: parent
                width: parent.width
                visible: grid.count === 0
                text: house.state === Panel.Offline ? qsTr("The panel keeps trying. Is the router switched on?")
                    : house.state === Panel.Following ? qsTr("The rooms are being asked for.")
                                                      : qsTr("The rooms appear when the central unit is there.")
                color: Theme.quiet
                font.pixelSize: Theme.medium
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.WordWrap
            }
        }
    }
}
