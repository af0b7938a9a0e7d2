#pragma once

// Pure readers of the tool outputs and kernel files behind the dashboard's
// system figures. Each takes the text as the tool printed it.
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// top -Sbn1, the "%Cpu(s):" line read by label: "us", "sy", "ni", "id" and
// "ratio" (us + sy + ni, at most 100, two decimals). Empty when the output
// has fewer than 7 lines or no such line.
QJsonObject topCpuOf(const QString& top);

// top -Sbn1: "time" from the summary line, "total", "running", "sleeping",
// "stoped" and "zombie" from the "Tasks:" line, each read by its label.
QJsonObject topTasksOf(const QString& top);

// ps aux --noheading: {"user", "pid", "cpu", "mem", "command"} per process,
// busiest first; the listing's own line is left out.
QJsonArray psProcessesOf(const QString& ps);

// The word after every "echo -e " replaced by asterisks when the command
// also mentions cryptsetup: a volume password must not leave the daemon.
QString maskedCommand(const QString& command);

// sensors -j: the hottest "_input" of "coretemp-isa-0000"; 0 without one.
double coreTemperatureOf(const QString& sensors);

// Degrees Fahrenheit, two decimals.
double fahrenheitOf(double celsius);

// /proc/meminfo: the byte counts and use rates of VXMemory::alload.
QJsonObject meminfoOf(const QString& meminfo);

// /proc/net/dev for the interfaces in nics: per interface {"nic",
// "read_bytes", "write_bytes", "read_speed", "write_speed"}. Rates are the
// counter deltas against previous over elapsedMs, in bytes per second; 0
// for an interface previous lacks. readall and writeall get the summed rates.
QJsonObject netSpeedsOf(const QString& netDev, const QStringList& nics, const QJsonObject& previous,
                        qint64 elapsedMs, qint64& readall, qint64& writeall);

// The model of a DMI product name: the first of models that stands in it as
// a whole word, else the trimmed product name.
QString modelOf(const QString& product, const QStringList& models);

// dmidecode --type 1: "manufacturer", "product", "sn" (each only when
// given and not "None") and "model" ("(Unknown)" without a product name).
QJsonObject dmiSystemOf(const QString& dmidecode, const QStringList& models);

// blkid -o export: "<DEVNAME>" -> the block's keys and values.
QJsonObject blkidBlocksOf(const QString& blkid);

// uptime: the trimmed text after the last ":" (the load averages).
QString loadAverageOf(const QString& uptime);

// /proc/version: the third word (the kernel release); "" with fewer words.
QString kernelVersionOf(const QString& version);

// {"duration", "days", "hours", "minutes", "seconds"} of a span in seconds.
QJsonObject uptimeOf(qint64 seconds);
