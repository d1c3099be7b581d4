// SPDX-License-Identifier: MIT
// What has happened and why, the newest first. A click shows the house as it was then.
import QtQuick 2.15
import "."

Rectangle {
    id: frame

    radius: 12
    color: Theme.card
    border { color: Theme.faint; width: 1 }

    ListView {
        id: list

        objectName: "events"
        anchors { fill: parent; margins: 4 }
        model: picture.events
        clip: true
        boundsBehavior: Flickable.StopAtBounds
        activeFocusOnTab: true
        currentIndex: -1
        Keys.onReturnPressed: if (currentItem) currentItem.go()
        Keys.onSpacePressed: if (currentItem) currentItem.go()
        Bar { parent: list; flickable: list }

        delegate: Item {
            id: event

            required property var model
            required property int index
            required property date time
            required property string text
            required property string why
            required property string tone

            function go() {
                picture.show(time)
            }

            width: list.width - 12
            height: Theme.touch

            Rectangle {
                anchors { fill: parent; margins: 1 }
                radius: 6
                color: pointed.containsMouse || event.ListView.isCurrentItem ? Theme.raised : "transparent"
                border.color: Theme.accent
                border.width: event.ListView.isCurrentItem && list.activeFocus ? 2 : 0
            }
            Rectangle {
                x: 8
                anchors.verticalCenter: parent.verticalCenter
                width: 6
                height: 28
                radius: 3
                color: Theme.toneColor(event.tone)
            }
            Text {
                id: clock
                x: 24
                anchors.verticalCenter: parent.verticalCenter
                width: 64
                text: Theme.clock(event.time)
                textFormat: Text.PlainText
                color: Theme.quiet
                font.pixelSize: Theme.small
            }
            Column {
                anchors { left: clock.right; leftMargin: 8; right: parent.right; rightMargin: 8; verticalCenter: parent.verticalCenter }
                Text {
                    id: what
                    width: parent.width
                    text: event.text
                    textFormat: Text.PlainText
                    color: event.tone === "bad" ? Theme.bad : Theme.text
                    font.pixelSize: Theme.medium
                    elide: Text.ElideRight
                }
                Text {
                    id: reason
                    width: parent.width
                    visible: event.why !== ""
                    text: event.why
                    textFormat: Text.PlainText
                    color: Theme.quiet
                    font.pixelSize: Theme.tiny
                    elide: Text.ElideRight
                }
            }
            MouseArea {
                id: pointed
                anchors.fill: parent
                hoverEnabled: true
                onContainsMouseChanged: {
                    if (!containsMouse || !(what.truncated || reason.truncated)) {
                        tip.text = ""
                        return
                    }
                    const at = event.mapToItem(tip.parent, 40, event.height / 2)
                    tip.atX = at.x
                    tip.atY = at.y
                    tip.text = event.why ? event.text + "\n" + event.why : event.text
                }
                onClicked: {
                    list.currentIndex = event.index
                    list.forceActiveFocus()
                    event.go()
                }
            }
        }
        Text {
            anchors.centerIn: parent
            width: parent.width - 24
            visible: list.count === 0
            text: qsTr("Nothing has happened yet.")
            textFormat: Text.PlainText
            color: Theme.quiet
            font.pixelSize: Theme.medium
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.WordWrap
        }
    }
    Tip {
        id: tip
        parent: window.contentItem
        z: 10
    }
}
