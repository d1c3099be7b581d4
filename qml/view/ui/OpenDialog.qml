// SPDX-License-Identifier: MIT
// Asks for the file of a recording. Qt 6 takes the one in the folder +qt6.
import QtQuick 2.15
import QtQuick.Dialogs 1.3

FileDialog {
    title: qsTr("Open a recording")
    nameFilters: [qsTr("Recordings (*.rec)"), qsTr("All files (*)")]
}
