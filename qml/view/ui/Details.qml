// SPDX-License-Identifier: MIT
// All that is known of what is selected: in words, its last packets, and its own record.
import QtQuick 2.15
import QtQuick.Layouts 1.15
import "."

Rectangle {
    id: details

    property string page: "state"
    readonly property var rows: picture.details // once for all rows, not once for each

    objectName: "details"
    radius: 12
    color: Theme.card
    border { color: Theme.faint; width: 1 }
    clip: true

    MouseArea { anchors.fill: parent } // what lies below is not meant

    ColumnLayout {
        anchors { fill: parent; margins: Theme.gap }
        spacing: 4

        RowLayout {
            Layout.fillWidth: true
            Layout.leftMargin: 6
            Text {
                objectName: "heading"
                Layout.fillWidth: true
                text: picture.selected
                textFormat: Text.PlainText
                color: Theme.text
                font { pixelSize: Theme.medium; bold: true }
                wrapMode: Text.WrapAnywhere
                maximumLineCount: 3
                elide: Text.ElideRight
            }
            TouchButton {
                objectName: "close"
                Layout.alignment: Qt.AlignTop
                text: "×"
                hint: qsTr("Close")
                font.pixelSize: Theme.large
                onClicked: picture.select("", "")
            }
        }
        RowLayout {
            Layout.fillWidth: true
            spacing: 4
            visible: picture.selectedKind === "node"
            Repeater {
                model: [["state", qsTr("State")], ["packets", qsTr("Packets")], ["record", qsTr("Record")]]
                TouchButton {
                    objectName: "page_" + modelData[0]
                    Layout.fillWidth: true
                    text: modelData[1]
                    font.pixelSize: Theme.small
                    chosen: details.page === modelData[0]
                    onClicked: details.page = modelData[0]
                }
            }
        }
        Flickable {
            id: flick
            Layout.fillWidth: true
            Layout.fillHeight: true
            visible: details.page === "state" || picture.selectedKind !== "node"
            contentHeight: list.height
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            activeFocusOnTab: contentHeight > height
            Keys.onUpPressed: contentY = Math.max(0, contentY - 40)
            Keys.onDownPressed: contentY = Math.max(0, Math.min(contentHeight - height, contentY + 40))
            Bar { parent: flick; flickable: flick }
            Column {
                id: list
                x: 6
                width: flick.width - 20
                spacing: 6
                Repeater {
                    model: details.rows.length
                    Column {
                        width: list.width
                        Text {
                            width: parent.width
                            text: details.rows[index] ? details.rows[index].name : ""
                            textFormat: Text.PlainText
                            color: Theme.quiet
                            font.pixelSize: Theme.tiny
                            elide: Text.ElideRight
                        }
                        Text {
                            width: parent.width
                            text: details.rows[index] ? details.rows[index].value : ""
                            textFormat: Text.PlainText
                            color: Theme.text
                            font.pixelSize: Theme.medium
                            wrapMode: Text.WrapAtWordBoundaryOrAnywhere
                        }
                    }
                }
            }
        }
        PacketList {
            Layout.fillWidth: true
            Layout.fillHeight: true
            visible: details.page === "packets" && picture.selectedKind === "node"
        }
        Flickable {
            id: record
            Layout.fillWidth: true
            Layout.fillHeight: true
            visible: details.page === "record" && picture.selectedKind === "node"
            contentHeight: recordText.height
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            activeFocusOnTab: visible
            Keys.onUpPressed: contentY = Math.max(0, contentY - 40)
            Keys.onDownPressed: contentY = Math.max(0, Math.min(contentHeight - height, contentY + 40))
            Bar { parent: record; flickable: record }
            Text {
                id: recordText
                x: 6
                width: record.width - 20
                text: picture.recordText || qsTr("It has not presented itself.")
                textFormat: Text.PlainText
                color: Theme.text
                font { pixelSize: Theme.small; family: picture.recordText ? Theme.fixedFont : Qt.application.font.family }
                wrapMode: Text.WrapAtWordBoundaryOrAnywhere
            }
        }
    }
}
