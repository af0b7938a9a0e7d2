#pragma once

#include <QJsonObject>

// Processor load, temperature and the process list for the dashboard.
// Stateless: every call runs top, ps and sensors again.
class VXCpu
{
public:
    // cpu: "ratio", "us", "sy", "ni", "id", "temperature", "fahrenheit";
    // process: "time", "total", "running", "sleeping", "stoped", "zombie",
    // "processes" (every process, busiest first).
    static void cpuProcessing(QJsonObject& cpu, QJsonObject& process);
    // The hottest core in degrees Celsius; 0 without a reading.
    static double temperature();
};
