#pragma once

#include <QJsonArray>
#include <QString>

#include <mutex>

class QDir;

// The helpers behind VXLvm.
class VXLvmPrivate
{
public:
    static const QString MOUNTPOINT;
    static const QString ETC_FSTAB;
    static const QString ETC_CRYPTTAB;
    static const QString ORVO_ETC_CRYPTDIR;

    static bool mount(QString& msg, const QString& dev, const QString& mountPath, bool withType);
    static bool pathForMount(QString& out, const QString& dev);
    static bool lvMounted(const QString& dev);
    static int GetPESizeMb(const QString& vg);

    // fstab and crypttab. Every read-modify-write of either table holds
    // tablesLock(), so that two workers cannot lose each other's line.
    static std::mutex& tablesLock();
    static QJsonArray loadFromFstab();
    static bool fstabAppend(const QString& source, const QString& target, const QString& fstype,
                            const QString& options, int freq, int passno);
    static bool fstabRemove(const QString& target);
    static bool crypttabAppend(const QString& dev);
    static bool crypttabRemove(const QString& dev);

    // Encryption. The key file path is empty for names that are not LVM names.
    static QString cryptFilePath(const QString& vg, const QString& lv, QDir* dir = nullptr);
    static bool lvIsCrypt(const QString& dev);
    static QString toDeviceMapperPath(const QString& dev);

    // SSD cache helpers. Sizes in KiB; below 1 means all the free space
    // of the disk.
    static int availCacheSizeMb(const QString& vg, const QString& disk);
    static bool CreateCacheDataLV(const QString& name, const QString& vg, const QString& disk,
                                  qint64 sizeK);
    static bool ExtendLVonPV(const QString& vg, const QString& lv, const QString& disk,
                             qint64 sizeK);
    static bool CreateCachePool(const QString& vg, const QString& meta, const QString& data);
    static bool CombineLVWithCache(const QString& vg, const QString& lv, const QString& pool,
                                   const QString& mode);
    static bool vgAlterToCache(const QString& vg, const QString& disk);

    // Inventory helpers.
    static QStringList allMounted();
    static QString toUuid(const QString& dev);
};
