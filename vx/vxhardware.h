#pragma once

#include <QJsonObject>

// The console beeper and the raw block-device signatures.
class VXHardware
{
public:
    // hz 0 is silence.
    static void beepSound(unsigned hz, unsigned ms);
    // count short tones at 523 Hz.
    static void beeps(int count);
    // "<DEVNAME>" -> the keys blkid -o export prints for it.
    QJsonObject blockDevices() const;
};
