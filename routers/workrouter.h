#pragma once

#include "gx2/gx2todorouter.h"

// Power, liveness, device use and the ending of a user's web sessions.
class WorkRouter : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit WorkRouter(QObject* parent = nullptr);

private slots:
    void power_setbootime(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void power_sleeping(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void system_working(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void user_kick(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void device_isidle(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
};
