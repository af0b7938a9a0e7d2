#include "routers/lvmrouter.h"

#include "gx2/gx2utils.h"
#include "gx2/gx2workers.h"
#include "vx/vxlvm.h"
#include "vx/vxlvmlines.h"

#include <QSet>

#include <mutex>

// The "<vg>/<lv>" of every volume whose creation was accepted and whose
// worker has not ended. The lock is never held while a tool runs.
struct LvmCreations
{
    std::mutex lock;
    QSet<QString> keys;

    // False when key is taken already.
    bool take(const QString& key)
    {
        std::lock_guard<std::mutex> guard(lock);
        if (keys.contains(key))
            return false;
        keys.insert(key);
        return true;
    }
    void release(const QString& key)
    {
        std::lock_guard<std::mutex> guard(lock);
        keys.remove(key);
    }
    bool has(const QString& key)
    {
        std::lock_guard<std::mutex> guard(lock);
        return keys.contains(key);
    }
};

namespace {

struct LvmRequest
{
    QString vg;
    QString lv;
    int mbsize = 0;
    QString type;
    QString fstype;
    int block = 0;
    QString pwd;
    bool savepwd = false;

    QString key() const { return vg + QLatin1Char('/') + lv; }
};

// Gives the key back once, whichever way the creation ends. Once given back
// the key may belong to a newer request, so it is never released twice.
class KeyHold
{
public:
    KeyHold(std::shared_ptr<LvmCreations> creations, QString key)
        : creations(std::move(creations)), key(std::move(key))
    {
    }
    ~KeyHold() { release(); }
    KeyHold(const KeyHold&) = delete;
    KeyHold& operator=(const KeyHold&) = delete;

    void release()
    {
        if (held)
            creations->release(key);
        held = false;
    }

private:
    std::shared_ptr<LvmCreations> creations;
    QString key;
    bool held = true;
};

QString stringParam(const GX2RpcPacket& cmdObject, const char* key)
{
    return toString(cmdObject.param(QLatin1String(key)));
}

int intParam(const GX2RpcPacket& cmdObject, const char* key)
{
    return toInt(cmdObject.param(QLatin1String(key)));
}

// A failure leaves the volume created, unformatted or unmounted; the front
// end learns the outcome from "lvm_formating" alone, so msg goes nowhere.
void formatAndMount(const LvmRequest& r)
{
    QString msg;
    if (!VXLvm::lvFormat(msg, r.vg, r.lv, r.fstype, r.block, r.pwd))
        return;
    if (!r.pwd.isEmpty() && r.savepwd && !VXLvm::lvSavePwd(msg, r.vg, r.lv, r.pwd))
        return;
    const QString mountPath = VXLvm::toMountPath(r.vg, r.lv);
    const QString dev = VXLvm::toVolumePath(r.vg, r.lv);
    VXLvm::lvMount(msg, dev, mountPath, r.pwd);
}

void create(const std::shared_ptr<LvmCreations>& creations, const LvmRequest& r,
            const GX2Deferred& later)
{
    KeyHold hold(creations, r.key());
    if (!VXLvm::lvCreate(r.vg, r.lv, r.mbsize, r.type)) {
        // Free before answering: a client retrying at once must not see 9994.
        hold.release();
        later.answer(GX2RpcPacket::ofErr(kLvmCreateFailed));
        return;
    }
    later.answer(GX2RpcPacket::ofErr(kLvmOk));
    // A quit that began meanwhile leaves the volume created and unformatted,
    // as a worker that could not start would.
    if (!GX2Workers::stopping())
        formatAndMount(r);
}

} // namespace

LvmRouter::LvmRouter(QObject* parent)
    : GX2TodoRouter(parent), creations(std::make_shared<LvmCreations>())
{
}

LvmRouter::~LvmRouter() = default;

void LvmRouter::lvm_creating(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    LvmRequest r;
    r.vg = stringParam(cmdObject, "vg");
    r.lv = stringParam(cmdObject, "lv");
    r.pwd = stringParam(cmdObject, "pwd");
    // The names and the password end up in root command lines and in the
    // key file's path: a refused request runs nothing and takes no name.
    if (!isLvmName(r.vg) || !isLvmName(r.lv))
        return retObject->setErr(kLvmCreateFailed);
    if (!r.pwd.isEmpty() && !isLvmPassword(r.pwd)) {
        retObject->setErr(kLvmTooSmall);
        retObject->insert(QStringLiteral("errmsg"), QStringLiteral("密码含有不允许的字符或过长"));
        return;
    }
    const QString key = r.key();
    if (!creations->take(key))
        return retObject->setErr(kLvmNotFound);

    r.mbsize = intParam(cmdObject, "mbsize");
    r.type = stringParam(cmdObject, "type");
    r.fstype = stringParam(cmdObject, "fstype");
    r.block = intParam(cmdObject, "block");
    r.savepwd = intParam(cmdObject, "savepwd") > 0;

    // lvcreate of a thin volume takes tens of seconds: the other clients go
    // on being served while it runs.
    const GX2Deferred later = retObject->answerLater();
    const std::shared_ptr<LvmCreations> shared = creations;
    if (!GX2Workers::start(QStringLiteral("lvm create ") + key,
                           [shared, r, later] { create(shared, r, later); })) {
        creations->release(key);
        later.answer(GX2RpcPacket::ofErr(kLvmCreateFailed));
    }
}

void LvmRouter::lvm_formating(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    const QString vg = stringParam(cmdObject, "vg");
    const QString lv = stringParam(cmdObject, "lv");
    QJsonObject results{{QStringLiteral("creating"), 0},
                        {QStringLiteral("formating"), 0},
                        {QStringLiteral("mounted"), 0}};
    if (creations->has(vg + QLatin1Char('/') + lv)) {
        // Not mounted yet as far as the front end is concerned, even when the
        // worker has already mounted it.
        results.insert(QStringLiteral("creating"), 1);
        results.insert(QStringLiteral("formating"), VXLvm::lvFormating(vg, lv) ? 1 : 0);
        return retObject->setResults(results);
    }
    qint64 size = 0;
    qint64 used = 0;
    qint64 avail = 0;
    if (VXLvm::lvMounted(size, used, avail, VXLvm::toVolumePath(vg, lv))) {
        results.insert(QStringLiteral("mounted"), 1);
        results.insert(QStringLiteral("size"), size);
        results.insert(QStringLiteral("used"), used);
        results.insert(QStringLiteral("avail"), avail);
    }
    retObject->setResults(results);
}
