#pragma once

#include "gx2/gx2todorouter.h"

#include <memory>

struct LvmCreations;

// Logical volume creation and its progress. "lvm_creating" answers once the
// volume exists; formatting, key saving and mounting go on on a worker, and
// the front end polls "lvm_formating" until the volume shows as mounted.
class LvmRouter : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit LvmRouter(QObject* parent = nullptr);
    ~LvmRouter() override;

private slots:
    void lvm_creating(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void lvm_formating(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);

private:
    // Shared with the creation workers, which may outlive the router.
    std::shared_ptr<LvmCreations> creations;
};
