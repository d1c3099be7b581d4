// SPDX-License-Identifier: MIT
// Colours and sizes, light and dark.
pragma Singleton
import QtQuick 2.15

QtObject {
    property bool dark: false

    readonly property color background: dark ? "#14181c" : "#f2f4f5"
    readonly property color card: dark ? "#20262c" : "#ffffff"
    readonly property color text: dark ? "#f2f4f5" : "#14181c"
    readonly property color quiet: dark ? "#aeb8c0" : "#4c5760"
    readonly property color accent: dark ? "#7cc4ff" : "#00569c"
    readonly property color accentText: dark ? "#14181c" : "#ffffff"
    readonly property color warning: dark ? "#ffc66b" : "#8a4b00"
    readonly property color line: dark ? "#6f7b85" : "#76828c"

    readonly property int gap: 16
    readonly property int touch: 56
    readonly property int small: 18
    readonly property int medium: 22
    readonly property int large: 48
}
