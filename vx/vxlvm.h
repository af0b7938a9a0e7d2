#pragma once

#include "gx2/gx2errors.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

// Result codes of the volume operations; 0 is success.
#define VX_LVM_CODES(X)                                                                            \
    X(kLvmOk, 0, "success")                                                                        \
    X(kLvmKeyUnreadable, 9991, "the saved key file cannot be read")                                \
    X(kLvmGroupExists, 9993, "the group to create exists already")                                 \
    X(kLvmNotFound, 9994, "no such volume (or it is being created)")                               \
    X(kLvmTooSmall, 9995, "a volume only grows; or a refused name or password")                    \
    X(kLvmNoSpace, 9973, "the group lacks the space to grow")                                      \
    X(kLvmCloseFailed, 9954, "the encrypted mapping did not close")                                \
    X(kLvmCreateFailed, 9969, "lvcreate failed, or the LVM router refused the names")              \
    X(kLvmFailed, 9999, "a tool failed; the message is its output")

// SSD cache codes (kLvmNoSpace, kLvmCreateFailed and kLvmNotFound serve the
// cache as well, each with a message of its own).
#define VX_LVM_CACHE_CODES(X)                                                                      \
    X(kLvmCacheExtendFailed, 9900, "the cache disk did not join the group")                        \
    X(kLvmCachePoolFailed, 9908, "lvconvert to a cache pool failed")                               \
    X(kLvmCacheNameWrong, 9914, "the pool's devices are unreadable, or wiping the disk failed")    \
    X(kLvmCacheUnbindFailed, 9921, "the pool's devices could not be listed")                       \
    X(kLvmCacheBindFailed, 9922, "lvconvert --type cache failed, or a bad cache mode")             \
    X(kLvmCacheQueryFailed, 9924, "the pool's data volume could not be listed")                    \
    X(kLvmCachePlaceholderFailed, 9985, "no placeholder over the new cache disk")

VX_LVM_CODES(GX2_CODE_CONSTANT)
VX_LVM_CACHE_CODES(GX2_CODE_CONSTANT)

// LVM volume groups and logical volumes: creation, formatting (optionally
// inside a LUKS container), mounting, fstab and crypttab, growing and
// removal. Everything is carried out by the LVM and system tools through
// sudo; the class keeps no state. Group, volume and disk arguments are
// checked before any command line is built from them.
class VXLvm
{
public:
    // Volume groups.
    static int vgCreate(QString& msg, const QString& vg, const QStringList& disks, int peSizeMb);
    static int vgExtend(QString& msg, const QString& vg, const QStringList& disks);
    static bool vgRemove(QString& msg, const QString& vg);
    static bool vgExists(const QString& vg);
    static qint64 vgFree(const QString& vg);
    static QStringList vgNames();
    static QStringList lvNames(const QString& vg);

    // Logical volumes.
    static bool lvExists(const QString& vg, const QString& lv);
    static bool lvCreate(const QString& vg, const QString& lv, int mbsize, const QString& type);
    // Asks the daemon to run the whole creation ("lvm_creating").
    static bool lvCreating(const QString& vg, const QString& lv, int mbsize, const QString& type,
                           const QString& fstype, int block, const QString& pwd, bool savepwd);
    static bool lvFormat(QString& msg, const QString& vg, const QString& lv, const QString& fstype,
                         int block, const QString& pwd);
    static bool lvFormating(const QString& vg, const QString& lv);
    static int lvMount(QString& msg, const QString& dev, const QString& mountPath,
                       const QString& pwd);
    static bool lvUmount(const QString& dev);
    static int lvExtend(QString& msg, const QString& dev, int newMb);
    static int lvRemove(QString& msg, const QString& dev);
    static int lvRemove(QString& msg, const QString& vg, const QString& lv);

    // Paths.
    static QString toMountPath(const QString& vg, const QString& lv);
    static QString toMountPath(const QString& dev);
    static QString toVolumePath(const QString& vg, const QString& lv, QString* dmPath = nullptr);
    static QString toVgLv(QString& vg, QString& lv, const QString& dev);
    static QString toFstype(const QString& dev);

    // Encryption.
    static bool lvSavePwd(QString& msg, const QString& vg, const QString& lv, const QString& pwd);
    static int lvLoadPwd(QString& msg, QString& pwd, const QString& vg, const QString& lv);
    static bool lvIsCrypt(const QString& dev);
    static QString toDeviceMapperPath(const QString& dev);

    // SSD cache. A cache disk joins the group with a placeholder volume
    // "<vg>_<diskname>_unused_cache" over all of it; a volume's cache pool
    // is carved out of that placeholder and given back to it on removal.
    static int vgCacheAppend(QString& msg, const QString& vg, const QString& disk);
    static int vgCacheRemove(const QString& vg, const QString& disk);
    static bool vgCacheActive(const QString& vg, const QString& disk);
    static bool vgCacheRepair(const QString& vg);
    static QStringList vgCacheAllist(const QString& vg);
    static QJsonObject vgCacheAlload();
    static QJsonObject vgCacheAlload(const QString& vg);
    static int lvCacheAppend(QString& msg, const QString& vg, const QString& lv,
                             const QString& disk, int sizeMb, const QString& mode);
    static int lvCacheRemove(QString& msg, const QString& vg, const QString& lv);
    static bool lvCacheExists(const QString& vg, const QString& lv);
    static QString lvCacheLVPool(const QString& vg, const QString& lv);
    static bool lvCacheDev(QString& dev, const QString& vg, const QString& lv);
    static bool lvCacheDetail(QJsonObject& obj, const QString& vg, const QString& lv);

    // Inventory. A failed query gives an empty result, never an error.
    static QJsonObject vgAlload();
    static QStringList groups();
    static QJsonObject allist();
    static QJsonObject alload();
    static QJsonObject whole();
    static bool lvDetail(QJsonObject& obj, const QString& dev);
    static QJsonObject vgDetail(const QString& vg, bool withAvailables);
    static QJsonObject lvAllMounts();
    static QJsonObject lvDevMounts();
    static QJsonObject lvMounts();
    static QJsonObject lvMountsByDev();
    static bool lvMounted(qint64& size, qint64& used, qint64& avail, const QString& path);
    static bool lvMounted(const QString& dev);
    static QJsonObject lvFree(const QString& path);
    static QJsonObject blockDevice(const QString& dev);
    static QString toUuid(const QString& dev);
    // Drops the fstab lines of /mnt/ targets that are not mounted and the
    // crypttab lines of mappings fstab no longer names; true when fstab
    // changed.
    static bool fixlost();
};
