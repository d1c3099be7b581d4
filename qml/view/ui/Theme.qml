// SPDX-License-Identifier: MIT
// Colours, sizes and ways to write figures, light and dark.
pragma Singleton
import QtQuick 2.15

QtObject {
    property bool dark: false

    readonly property color background: dark ? "#14181c" : "#e9edf0"
    readonly property color card: dark ? "#1d2329" : "#ffffff"
    readonly property color raised: dark ? "#2a323a" : "#f1f4f6"
    readonly property color text: dark ? "#f2f4f5" : "#14181c"
    readonly property color quiet: dark ? "#aeb8c0" : "#4c5760"
    readonly property color line: dark ? "#6f7b85" : "#76828c"
    readonly property color faint: dark ? "#3d4852" : "#c6d0d7"
    readonly property color accent: dark ? "#7cc4ff" : "#00569c"
    readonly property color accentText: dark ? "#14181c" : "#ffffff"
    readonly property color master: dark ? "#ffcf5c" : "#8a5a00"
    readonly property color good: dark ? "#7fd99a" : "#1b6e3c"
    readonly property color bad: dark ? "#ff9a8f" : "#b3261e"
    readonly property color badCard: dark ? "#4a1f1b" : "#fbe4e2"
    readonly property color packet: dark ? "#ffa657" : "#c04a00"

    readonly property int gap: 8
    readonly property int touch: 48
    readonly property int tiny: 12
    readonly property int small: 13
    readonly property int medium: 15
    readonly property int large: 20
    readonly property string fixedFont: "monospace"

    function clock(date) {
        return isNaN(date) ? "–" : Qt.formatDateTime(date, "HH:mm:ss")
    }
    function moment(date) {
        return isNaN(date) ? "–" : Qt.formatDateTime(date, "yyyy-MM-dd HH:mm:ss")
    }
    function perSecond(rate) {
        return qsTr("%1/s").arg(rate > 0 && rate < 9.95 ? Number(rate).toFixed(1) : Math.round(rate))
    }
    function toneColor(tone) {
        return tone === "bad" ? bad : tone === "good" ? good : line
    }
}
