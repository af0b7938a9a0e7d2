// The dashboard's system sources: VXCpu, VXMemory, VXNetwork, VXSystem,
// SystemInfo and VXHardware.

#include "tools/adm/admtable.h"

#include "vx/systeminfo.h"
#include "vx/systeminfo_p.h"
#include "vx/vxcpu.h"
#include "vx/vxhardware.h"
#include "vx/vxmemory.h"
#include "vx/vxnetwork.h"
#include "vx/vxsystem.h"

#include <algorithm>

QList<AdmEntry> admVXSystemEntries()
{
    using T = AdmType;
    using R = AdmResult;
    const QList<AdmParam> pid{{"pid", T::Int}};
    return {
        {"VXCpu::cpuProcessing",
         {},
         {"cpu", "process"},
         R::None,
         [](AdmCall& c) {
             QJsonObject cpu;
             QJsonObject process;
             VXCpu::cpuProcessing(cpu, process);
             c.out("cpu", cpu);
             c.out("process", process);
             return admVoid();
         }},
        {"VXCpu::temperature", {}, {}, R::Value, [](AdmCall&) { return VXCpu::temperature(); }},
        {"VXMemory::alload",
         {},
         {"memory"},
         R::None,
         [](AdmCall& c) {
             QJsonObject memory;
             VXMemory::alload(memory);
             c.out("memory", memory);
             return admVoid();
         }},

        // A fresh process has no earlier sample: its rates are 0.
        {"VXNetwork::speeds",
         {},
         {"nics", "readall", "writeall"},
         R::None,
         [](AdmCall& c) {
             VXNetwork network;
             QJsonObject nics;
             qint64 readall = 0;
             qint64 writeall = 0;
             network.speeds(nics, readall, writeall);
             c.out("nics", nics);
             c.out("readall", readall);
             c.out("writeall", writeall);
             return admVoid();
         }},
        {"VXNetwork::physicalNics",
         {},
         {},
         R::Value,
         [](AdmCall&) { return admList(VXNetwork::physicalNics()); }},
        {"VXNetwork::hostname", {}, {}, R::Value, [](AdmCall&) { return VXNetwork::hostname(); }},

        {"VXSystem::uptime", {}, {}, R::Value, [](AdmCall&) { return VXSystem::uptime(); }},
        {"VXSystem::loadAverage",
         {},
         {},
         R::Value,
         [](AdmCall&) { return VXSystem::loadAverage(); }},
        {"VXSystem::kernelVersion",
         {},
         {},
         R::Value,
         [](AdmCall&) { return VXSystem::kernelVersion(); }},
        {"VXSystem::version", {}, {}, R::Value, [](AdmCall&) { return VXSystem::version(); }},
        // Both only ask the daemon, which decides; nothing is done here.
        {"VXSystem::processExists",
         pid,
         {},
         R::Bool,
         [](AdmCall& c) { return VXSystem::processExists(c.integer(0)); }},
        {"VXSystem::processKill",
         pid,
         {},
         R::Bool,
         [](AdmCall& c) { return VXSystem::processKill(c.integer(0)); }},

        {"SystemInfo::allInfo", {}, {}, R::Value, [](AdmCall&) { return SystemInfo().allInfo(); }},
        {"SystemInfoPrivate::biosInfo",
         {},
         {},
         R::Value,
         [](AdmCall&) { return SystemInfoPrivate().biosInfo(); }},
        {"SystemInfoPrivate::optionalByModel",
         {{"model", T::String}},
         {"row"},
         R::Bool,
         [](AdmCall& c) {
             QJsonObject row;
             const bool known = SystemInfoPrivate::optionalByModel(row, c.str(0));
             c.out("row", row);
             return known;
         }},

        {"VXHardware::beepSound",
         {{"hz", T::Int}, {"ms", T::Int}},
         {},
         R::None,
         [](AdmCall& c) {
             VXHardware::beepSound(static_cast<unsigned>(std::max(0, c.integer(0))),
                                   static_cast<unsigned>(std::max(0, c.integer(1))));
             return admVoid();
         }},
        {"VXHardware::beeps",
         {{"count", T::Int}},
         {},
         R::None,
         [](AdmCall& c) {
             VXHardware::beeps(c.integer(0));
             return admVoid();
         }},
        {"VXHardware::blockDevices",
         {},
         {},
         R::Value,
         [](AdmCall&) { return VXHardware().blockDevices(); }},
    };
}
