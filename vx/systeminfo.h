#pragma once

#include <QJsonObject>

#include <memory>

class SystemInfoPrivate;

// Kernel, operating system and board identity, and the capabilities of the
// appliance model. Gathered once, at construction; read-only afterwards.
class SystemInfo
{
public:
    SystemInfo();
    ~SystemInfo();
    SystemInfo(const SystemInfo&) = delete;
    SystemInfo& operator=(const SystemInfo&) = delete;

    // "kernel", "os", "machine", "optional" (known models only), "hostname".
    QJsonObject allInfo() const;

private:
    std::unique_ptr<SystemInfoPrivate> d;
};
