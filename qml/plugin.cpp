// SPDX-License-Identifier: MIT
// What the QML module consists of.
#include "house_list.h"
#include "panel.h"

#include <QtQml/QQmlExtensionPlugin>
#include <QtQml/qqml.h>

namespace comunication {
namespace qml {

class plugin_t : public QQmlExtensionPlugin {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QQmlExtensionInterface_iid)
public:
    void registerTypes(const char* uri) override
    {
        qmlRegisterType<panel_t>(uri, 1, 0, "Panel");
        qmlRegisterType<house_list_t>(uri, 1, 0, "HouseModel");
        qmlRegisterUncreatableType<request_t>(uri, 1, 0, "Request", QStringLiteral("Panel.request() makes it."));
    }
};

} // namespace qml
} // namespace comunication

#include "plugin.moc"
