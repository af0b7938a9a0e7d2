#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

// What each appliance model has on board. The blank in "energy " is part of
// the key the front end reads.
inline constexpr char kSystemModelTable[] = R"({
    "KA200":  {"gpio": 0, "power": 1, "reset": 1, "ledpower": 1, "ledstatus": 1, "fans": 1,
               "lanslot": 2, "hdmislot": 1, "usbfront": 1, "usbrear": 2, "usbslot": 3,
               "energy ": 60, "diskslot": 2, "timedboot": 0, "wol": 0},
    "KB201P": {"gpio": 1, "power": 1, "reset": 1, "ledpower": 1, "ledstatus": 1, "fans": 1,
               "lanslot": 2, "hdmislot": 1, "usbfront": 1, "usbrear": 2, "usbslot": 3,
               "energy ": 60, "diskslot": 2, "timedboot": 1, "wol": 1},
    "KB401P": {"gpio": 1, "power": 1, "reset": 1, "ledpower": 1, "ledstatus": 1, "fans": 1,
               "lanslot": 2, "hdmislot": 1, "usbfront": 1, "usbrear": 2, "usbslot": 3,
               "energy ": 90, "diskslot": 4, "timedboot": 1, "wol": 1},
    "KB801P": {"gpio": 1, "power": 1, "reset": 1, "ledpower": 1, "ledstatus": 1, "fans": 2,
               "lanslot": 2, "hdmislot": 1, "usbfront": 1, "usbrear": 2, "usbslot": 3,
               "energy ": 250, "diskslot": 8, "timedboot": 1, "wol": 1}
})";

class SystemInfoPrivate
{
public:
    // "manufacturer", "product", "sn" from dmidecode and the "model" the
    // capability table knows it by ("(Unknown)" when dmidecode fails).
    QJsonObject biosInfo() const;
    // row = the capability row of model; false for a model not in the table.
    static bool optionalByModel(QJsonObject& row, const QString& model);
    // The table's models, in its order.
    static QStringList models();

    QJsonObject info;
};
