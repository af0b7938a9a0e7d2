#include "vx/vxhardware.h"

#include "gx2/gx2syspath.h"
#include "lnx2/lnx2process.h"
#include "vx/vxsysparse.h"

#include <QFile>
#include <QThread>

#include <fcntl.h>
#include <linux/kd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

void VXHardware::beepSound(unsigned hz, unsigned ms)
{
    if (hz == 0)
        return;
    const int fd = ::open(QFile::encodeName(sysPath(QStringLiteral("/dev/tty10"))).constData(),
                          O_WRONLY | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return;
    // Duration in the high half, the divisor of the speaker's 1193180 Hz
    // clock in the low half; the kernel times the tone itself.
    const unsigned long tone =
        (static_cast<unsigned long>(std::min(ms, 0xFFFFu)) << 16) + 1193180u / hz;
    // A console without a speaker refuses; there is nothing to tell anyone.
    (void)::ioctl(fd, KDMKTONE, tone);
    ::close(fd);
}

void VXHardware::beeps(int count)
{
    for (int i = 0; i < count; ++i) {
        beepSound(523, 100);
        QThread::msleep(120);
    }
}

QJsonObject VXHardware::blockDevices() const
{
    const LNX2ProcResult result =
        procRunLine(QStringLiteral("/usr/bin/sudo blkid -o export"), 999, 10000);
    return result.ok() ? blkidBlocksOf(QString::fromUtf8(result.out)) : QJsonObject();
}
