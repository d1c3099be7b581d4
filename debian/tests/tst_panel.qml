// SPDX-License-Identifier: MIT
// A panel asks its master and gets an answer.
import QtTest 1.2
import Flotrofobul 1.0

TestCase {
    function test_answer() {
        tryVerify(() => panel.persistent.kitchen === 21.5, 10000);
    }

    Panel {
        id: panel

        configuration: "house.json"
        clientId: "panel-1"
        onMasterFound: request("persistent")
    }
}
