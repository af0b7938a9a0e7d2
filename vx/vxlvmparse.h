#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// Pure readers of the LVM, cryptsetup, ps, df and findmnt outputs the volume
// code runs. Lines are split at ":" keeping empty fields unless said.

// The lines of an output; the blank-separated fields of a line (empty ones
// skipped); the trimmed fields of a "--separator :" line, empty ones kept so
// that a volume without a path does not shift the fields after it.
QStringList outputLinesOf(const QString& out);
QStringList blankFieldsOf(const QString& line);
QStringList colonFieldsOf(const QString& line);

// "vgs -o vg_free --units b": trimmed, unit letter dropped; 0 when unreadable.
qint64 vgFreeOf(const QString& out);
// One name per line, trimmed; trailing empty lines dropped.
QStringList lvmNamesOf(const QString& out);
// "vgdisplay -c": the extent size (field 12, KiB) rounded up to MiB; 32 when
// there are fewer than 13 fields.
int peSizeMbOf(const QString& out);
// "lvs -o vg_name,lv_name,lv_path,lv_dm_path": lv_path of vg/lv (dm path
// into *dmPath), "" when absent.
QString volumePathOf(const QString& out, const QString& vg, const QString& lv,
                     QString* dmPath = nullptr);
// "lvs -o vg_name,lv_name,lv_path DEV": lv_path of the first line with three
// fields, vg and lv set from it; "" (vg, lv untouched) when none.
QString vgLvOf(const QString& out, QString& vg, QString& lv);
// "lvs -o vg_name,lv_name,lv_dm_path,lv_tags DEV": lv_dm_path of the first
// line with more than two fields; false when none.
bool dmPathOf(const QString& out, QString& dmPath);
// "ps -ef": a line holding dev as a whole field and "/sbin/mkfs.".
bool mkfsRunningOf(const QString& psOut, const QString& dev);
// "df -l --output=source": some line after the header equals source.
bool dfListsSource(const QString& out, const QString& source);
// "df -l --block=1 --output=source,size,used,avail": the first data line
// with more than three fields.
bool dfFiguresOf(const QString& out, qint64& size, qint64& used, qint64& avail);
// "cryptsetup status": the first "type:" line says "LUKS2".
bool isLuks2StatusOf(const QString& out);
// "df -k" lines with a "/dev/" source mounted under "/mnt/", keyed by the
// mount point: {"userate", "capacity", "size" (used), "free"} in bytes.
QJsonObject lvMountsOf(const QString& dfOut);
// The first line of "lvs -o vg_name,vg_free,lv_name,lv_path,lv_dm_path,
// lv_size,lv_attr,lv_tags --units b DEV" that names a volume (placeholders
// ending "_unused_cache" skipped), as the volume record without "crypt" and
// mount figures. False when no line qualifies.
bool lvRecordOf(const QString& out, QJsonObject& record);
// "vgdisplay -c VG": {"vg", "capacity", "free" (MiB), "unit": "mb"}; {} when
// there are too few fields.
QJsonObject vgSizesOf(const QString& out, const QString& vg);
// "findmnt -seJ -o UUID,...": the "filesystems" array with every field a
// string (numbers as decimal text, null as ""); [] when not such an object.
QJsonArray fstabEntriesOf(const QByteArray& json);
