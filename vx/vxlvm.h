#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

// Result codes of the volume operations; 0 is success.
constexpr int kLvmOk = 0;
constexpr int kLvmKeyUnreadable = 9991; // the saved key file cannot be read
constexpr int kLvmGroupExists = 9993;   // the group to create exists already
constexpr int kLvmNotFound = 9994;      // no such volume (or: it is being created)
constexpr int kLvmTooSmall = 9995;      // a volume only grows; also a refused name or password
constexpr int kLvmNoSpace = 9973;       // the group lacks the space to grow
constexpr int kLvmCloseFailed = 9954;   // the encrypted mapping did not close
constexpr int kLvmCreateFailed = 9969;  // lvcreate failed (the router's answer)
constexpr int kLvmFailed = 9999;        // a tool failed; the message is its output

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
    static bool lvFormat(QString& msg, const QString& vg, const QString& lv,
                         const QString& fstype, int block, const QString& pwd);
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

    // The part of the inventory the operations read back.
    static bool lvDetail(QJsonObject& obj, const QString& dev);
    static QJsonObject vgDetail(const QString& vg, bool withAvailables);
    static QJsonObject lvMounts();
    static bool lvMounted(qint64& size, qint64& used, qint64& avail, const QString& path);
    static bool lvMounted(const QString& dev);
};
