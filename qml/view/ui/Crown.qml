// SPDX-License-Identifier: MIT
// A crown, drawn without a font or a picture.
import QtQuick 2.15

Item {
    id: crown

    property color color

    Repeater {
        model: 3
        Rectangle { // half of it is hidden behind the rim
            width: crown.width * 0.3
            height: width
            x: crown.width * (0.05 + 0.3 * index)
            y: crown.height * (index === 1 ? 0.06 : 0.2)
            color: crown.color
            rotation: 45
        }
    }
    Rectangle {
        y: crown.height * 0.46
        width: crown.width
        height: crown.height * 0.44
        color: crown.color
    }
}
