// SPDX-License-Identifier: MIT
// Asks for the file of a recording, with Qt 6.
import QtQuick 2.15
import QtQuick.Dialogs 6.2

FileDialog {
    readonly property url fileUrl: selectedFile

    title: qsTr("Open a recording")
    nameFilters: [qsTr("Recordings (*.rec)"), qsTr("All files (*)")]
}
