// SPDX-License-Identifier: MIT
// Packets per second and round trips of the last five minutes. Drawn anew only when its points change, at most once a
// second: a chart is drawn as a whole each time.
import QtQuick 2.15
import QtCharts 2.3
import "."

Rectangle {
    id: plot

    property bool empty: true

    function fill() {
        picture.fillRates(rates)
        picture.fillRoundTrips(trips)
        empty = rates.count < 2 && trips.count === 0
    }

    objectName: "plot"
    radius: 12
    color: Theme.card
    border { color: Theme.faint; width: 1 }
    Component.onCompleted: fill()

    Connections {
        target: picture
        function onPlotChanged() { if (!pause.running) pause.start() }
    }
    Timer {
        id: pause
        interval: 900
        onTriggered: plot.fill()
    }
    ChartView {
        anchors { fill: parent; topMargin: 18; margins: 2 }
        margins { left: 2; right: 2; top: 2; bottom: 2 }
        backgroundColor: "transparent"
        plotAreaColor: "transparent"
        legend.visible: false
        antialiasing: true
        visible: !plot.empty

        LineSeries {
            id: rates
            color: Theme.accent
            width: 2
            axisX: ValueAxis {
                min: -300
                max: 0
                tickCount: 6
                labelFormat: "%d s"
                labelsColor: Theme.quiet
                labelsFont.pixelSize: Theme.tiny
                gridLineColor: Theme.faint
                color: Theme.line
            }
            axisY: ValueAxis {
                min: 0
                max: Math.max(1, picture.ratesMaximum)
                tickCount: 3
                labelFormat: max < 5 ? "%.1f" : "%d"
                labelsColor: Theme.accent
                labelsFont.pixelSize: Theme.tiny
                gridLineColor: Theme.faint
                color: Theme.line
            }
        }
        LineSeries {
            id: trips
            color: Theme.packet
            width: 2
            axisYRight: ValueAxis {
                min: 0
                max: Math.max(0.1, picture.tripsMaximum)
                tickCount: 3
                labelFormat: max < 5 ? "%.1f" : "%d"
                labelsColor: Theme.packet
                labelsFont.pixelSize: Theme.tiny
                gridVisible: false
                color: Theme.line
            }
        }
    }
    Text {
        x: 12
        y: 5
        text: qsTr("packets a second")
        textFormat: Text.PlainText
        color: Theme.accent
        font.pixelSize: Theme.tiny
    }
    Text {
        anchors { right: parent.right; rightMargin: 12 }
        y: 5
        text: qsTr("round trip, ms")
        textFormat: Text.PlainText
        color: Theme.packet
        font.pixelSize: Theme.tiny
    }
    Text {
        anchors.centerIn: parent
        visible: plot.empty
        text: qsTr("No packets in these five minutes.")
        textFormat: Text.PlainText
        color: Theme.quiet
        font.pixelSize: Theme.medium
    }
}
