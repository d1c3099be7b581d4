// SPDX-License-Identifier: MIT
// A crown, drawn without a font or a picture.
import QtQuick 2.15

Item {
    id: crown

    property color color

    Repeater {
        model: 3
        Rectangle { // half of it is hidden behind the rim
            width: crown.width * 0.24
            height: index === 1 ? width * 1.3 : width
            x: crown.width * (0.05 + 0.33 * index)
            y: crown.height * 0.5 - height * 0.6
            color: crown.color
            rotation: 45
        }
    }
    Rectangle {
        y: crown.height * 0.52
        width: crown.width
        height: crown.height * 0.36
        color: crown.color
    }
}
