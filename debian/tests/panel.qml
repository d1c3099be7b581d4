// SPDX-License-Identifier: MIT
// A panel that ends with 0 as soon as it has an answer of its master.
import QtQml 2.15
import Flotrofobul 1.0

Panel {
    configuration: Qt.application.arguments[Qt.application.arguments.length - 1]
    clientId: "panel-1"
    onMasterFound: request("persistent")
    onPersistentChanged: Qt.exit(persistent.kitchen === 21.5 ? 0 : 1)
}
