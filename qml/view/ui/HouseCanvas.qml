// SPDX-License-Identifier: MIT
// The house: brokers in their regions, the bridges between them, and the nodes around each.
import QtQuick 2.15
import "."

FocusScope {
    id: canvas

    readonly property bool crowded: bridges.count > 6
    property var hovered: null
    property bool selectedRight: false // what is selected stands in the right half
    property bool byKeyboard: false    // a frame helps only those who use it

    // What can be pointed at, with its place; made anew for each look, since all of it moves.
    function things() {
        const found = []
        for (let i = 0; i < nodes.count; ++i) {
            const node = nodes.itemAt(i)
            found.push({kind: "node", id: node.nodeId, x: node.posX, y: node.posY, reach: Math.max(14, node.size / 2 + 4),
                        tip: node.nodeId, current: node.isSelected})
        }
        for (let i = 0; i < boxes.count; ++i) {
            const box = boxes.itemAt(i)
            found.push({kind: "broker", id: box.name, x: box.posX, y: box.posY, reach: 34, tip: titles.itemAt(i).words,
                        current: box.isSelected})
        }
        for (let i = 0; i < labels.count; ++i) {
            const label = labels.itemAt(i)
            found.push({kind: "line", id: label.lineId, x: label.labelX, y: label.labelY, reach: 18,
                        tip: label.words, current: label.isSelected, line: bridges.itemAt(i)})
        }
        return found
    }
    function at(x, y) {
        let best = null
        let distance = Infinity
        for (const thing of things()) {
            const label = Math.hypot(thing.x - x, thing.y - y) - thing.reach
            const away = thing.line ? Math.min(label, thing.line.distance(x, y) - 4) : label
            if (away < Math.min(distance, 4)) {
                best = thing
                distance = away
            }
        }
        return best
    }
    // The nearest in a direction from what is selected.
    function step(dx, dy) {
        const all = things()
        const from = all.find(thing => thing.current)
        let best = from ? null : all[0]
        let shortest = Infinity
        for (const thing of from ? all : []) {
            const ahead = (thing.x - from.x) * dx + (thing.y - from.y) * dy
            const aside = Math.abs((thing.x - from.x) * dy) + Math.abs((thing.y - from.y) * dx)
            if (ahead > 1 && ahead + 2 * aside < shortest) {
                best = thing
                shortest = ahead + 2 * aside
            }
        }
        if (best)
            choose(best)
    }
    function choose(thing) {
        selectedRight = thing !== null && thing.x > width / 2
        picture.select(thing ? thing.kind : "", thing ? thing.id : "")
    }

    activeFocusOnTab: true
    onActiveFocusChanged: if (!activeFocus) byKeyboard = false
    Keys.onReleased: byKeyboard = true // that of Tab as well
    Keys.onPressed: byKeyboard = true
    Keys.onLeftPressed: step(-1, 0)
    Keys.onRightPressed: step(1, 0)
    Keys.onUpPressed: step(0, -1)
    Keys.onDownPressed: step(0, 1)
    Accessible.role: Accessible.Graphic
    Accessible.name: qsTr("The house")

    Binding { target: picture; property: "viewWidth"; value: canvas.width }
    Binding { target: picture; property: "viewHeight"; value: canvas.height }

    Repeater {
        id: areas
        model: picture.brokers
        BrokerArea {}
    }
    Repeater {
        id: bridges
        model: picture.lines
        BridgeLine { plain: canvas.crowded }
    }
    Repeater {
        model: picture.nodes
        NodeLine {}
    }
    Repeater {
        id: labels
        model: picture.lines
        BridgeLabel { plain: canvas.crowded }
    }
    Repeater {
        id: boxes
        model: picture.brokers
        BrokerBox {}
    }
    Repeater {
        id: titles
        model: picture.brokers
        BrokerTitle {}
    }
    Repeater {
        id: nodes
        model: picture.nodes
        NodeItem {}
    }
    Rectangle {
        anchors { bottom: parent.bottom; bottomMargin: 8; horizontalCenter: parent.horizontalCenter }
        width: notice.width + 24
        height: notice.height + 12
        visible: notice.text !== ""
        radius: 8
        color: Theme.raised
        border { color: Theme.faint; width: 1 }

        Text {
            id: notice
            objectName: "notice"
            x: 12
            y: 6
            width: Math.min(implicitWidth, canvas.width - 60)
            text: picture.notice || (nodes.count > 0 || picture.alarm !== "" || picture.loading ? ""
                : picture.recording ? qsTr("Nobody has spoken yet at this moment of the recording.")
                                    : qsTr("Nobody has spoken yet. A node appears with the first that it says."))
            textFormat: Text.PlainText
            color: Theme.text
            font.pixelSize: Theme.small
            wrapMode: Text.WrapAtWordBoundaryOrAnywhere
            maximumLineCount: 3
            elide: Text.ElideRight
        }
    }
    MouseArea {
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: canvas.hovered ? Qt.PointingHandCursor : Qt.ArrowCursor
        onPositionChanged: mouse => canvas.hovered = canvas.at(mouse.x, mouse.y)
        onExited: canvas.hovered = null
        onPressed: {
            canvas.forceActiveFocus()
            canvas.byKeyboard = false
        }
        onClicked: mouse => {
            const thing = canvas.at(mouse.x, mouse.y)
            canvas.hovered = null
            canvas.choose(thing)
        }
    }
    Tip {
        text: canvas.hovered ? canvas.hovered.tip : ""
        atX: canvas.hovered ? canvas.hovered.x : 0
        atY: canvas.hovered ? canvas.hovered.y : 0
    }
    Rectangle {
        anchors.fill: parent
        visible: canvas.activeFocus && canvas.byKeyboard
        color: "transparent"
        border { color: Theme.text; width: 2 }
    }
}
