#pragma once

#include "gx2/gx2todorouter.h"
#include "vx/vxraid.h"

#include <QJsonValue>

#include <memory>

struct RaidUpdates;

// RAID configuration refresh and resync speed limits.
class RaidRouter : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit RaidRouter(QObject* parent = nullptr);
    ~RaidRouter() override;

    // The wait limit of "raid_writeconfig_waitfor" for its "timeout" value:
    // 0 or less (or missing) gives 30000, more than 300000 gives 300000.
    static int waitLimitMs(const QJsonValue& timeout);

private slots:
    void raid_writeconfig(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void raid_writeconfig_waitfor(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void raid_limit_speeds(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void raid_limit_speeds_change(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);

private:
    VXRaid raid;
    // Shared with the update and wait threads, which may outlive the router.
    std::shared_ptr<RaidUpdates> updates;
};
