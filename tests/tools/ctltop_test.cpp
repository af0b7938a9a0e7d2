#include "tools/ctltop.h"
#include "tools/ctlwatch.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

// A "system_lookout" answer as the daemon gives it, with more processes than
// any frame has room for.
QJsonObject recordedAnswer()
{
    const char text[] = R"({"err":0,"results":{
      "hostname":"nas1","status":1,"loadaverage":"0.08, 0.12, 0.10",
      "kernelversion":"6.1.0-18-amd64",
      "uptime":{"duration":90061,"days":1,"hours":1,"minutes":1,"seconds":1},
      "cpu":{"ratio":12.5,"us":8,"sy":3.5,"ni":1,"id":87.5,"temperature":45,"fahrenheit":113},
      "memory":{"total":8589934592,"free":1073741824,"available":5368709120,"cached":1610612736,
                "swaptotal":1073741824,"swapfree":805306368,"swapcached":0,
                "memuserate":37,"swapuserate":25},
      "network":{"readall":1048576,"writeall":2048,"nic":{
        "eth0":{"nic":"eth0","read_bytes":9,"write_bytes":9,"read_speed":1048576,"write_speed":2048},
        "eth1":{"nic":"eth1","read_bytes":0,"write_bytes":0,"read_speed":0,"write_speed":0}}},
      "disk":{"speed":{"read_speed":4096,"write_speed":3145728},
              "temperature":{"min":35,"max":41,"devs":{"/dev/sda":35,"/dev/sdb":41}},
              "fahrenheit":{"min":95,"max":105.8,"devs":{"/dev/sda":95,"/dev/sdb":105.8}}},
      "storage":{"userate":25,"size":1099511627776,"free":3298534883328,
                 "capacity":4398046511104,"vgs":{
        "/":{"vg":"/","size":32212254720,"free":21474836480},
        "vg0":{"vg":"vg0","size":4398046511104,"free":3298534883328}}},
      "mount":{},
      "process":{"time":"10:21:03","total":123,"running":2,"sleeping":120,"stoped":0,"zombie":1,
                 "processes":[]},
      "logs":[
        {"level":"Warning","username":"admin","ipaddr":"10.0.0.2","appname":"disks",
         "description":"disk sdb runs hot","timestamp":"2024-06-04 10:20:00"},
        {"level":"Info","username":"admin","description":"volume data created"}]}})";
    QJsonObject answer = QJsonDocument::fromJson(text).object();
    QJsonObject results = answer.value("results").toObject();
    QJsonObject process = results.value("process").toObject();
    QJsonArray processes;
    for (int pid = 4242; pid < 4282; ++pid)
        processes.append(QJsonObject{{"user", pid == 4242 ? "www-data" : "root"},
                                     {"pid", QString::number(pid)},
                                     {"cpu", pid == 4242 ? "57.3" : "0.1"},
                                     {"mem", "1.2"},
                                     {"command", QStringLiteral("/usr/sbin/worker-%1 --with "
                                                                "a long list of arguments that "
                                                                "no terminal line holds")
                                                     .arg(pid)}});
    process.insert("processes", processes);
    results.insert("process", process);
    answer.insert("results", results);
    return answer;
}

// Lines as one text, so that a failure shows them.
std::string text(const QStringList& lines)
{
    return lines.join('\n').toStdString();
}

int indexStarting(const QStringList& lines, const QString& start)
{
    for (int i = 0; i < lines.size(); ++i) {
        if (lines.at(i).startsWith(start))
            return i;
    }
    return -1;
}

void expectFits(const QStringList& lines, int width, int height)
{
    EXPECT_LE(lines.size(), height);
    for (const QString& line : lines)
        EXPECT_LE(ctlTextWidth(line), width) << line.toStdString();
}

} // namespace

TEST(CtlTop, RecordedAnswerFillsTheScreenInOrderAndNeverOverflows)
{
    const QStringList big = renderTop(recordedAnswer(), 100, 30);
    expectFits(big, 100, 30);
    ASSERT_EQ(big.size(), 30) << text(big);
    EXPECT_EQ(text(big.mid(0, 11)),
              R"(nas1  warning  10:21:03  up 1d 01:01  load 0.08, 0.12, 0.10  kernel 6.1.0-18-amd64
CPU   12.5%  us 8.0  sy 3.5  ni 1.0  id 87.5  45.0°C
Mem   3 GB / 8 GB  37%  avail 5 GB  cached 1.5 GB
Swap  256 MB / 1 GB  25%
Net   ↓ 1 MB/s  ↑ 2 KB/s   eth0 ↓ 1 MB/s ↑ 2 KB/s   eth1 ↓ 0 B/s ↑ 0 B/s
Disk  read 4 KB/s  write 3 MB/s  35–41°C
Store 1 TB / 4 TB  25%
  /    10 GB / 30 GB  33%  free 20 GB
  vg0  1 TB / 4 TB  25%  free 3 TB
Tasks 123 total, 2 running, 120 sleeping, 0 stopped, 1 zombie
    PID USER      %CPU  %MEM COMMAND)");
    EXPECT_TRUE(big.at(11).startsWith("   4242 www-data  57.3   1.2 /usr/sbin/worker-4242"));
    EXPECT_EQ(ctlTextWidth(big.at(11)), 100); // the command is cut at the edge
    // The newest events close the frame, whatever fields they carry.
    EXPECT_EQ(text(big.mid(27)), R"(Recent events
2024-06-04 10:20:00  Warning  admin  10.0.0.2  disks  disk sdb runs hot
Info  admin  volume data created)");

    // A small terminal keeps the header first and gives up groups, events
    // and most processes, never the summary lines.
    const QStringList tiny = renderTop(recordedAnswer(), 40, 10);
    expectFits(tiny, 40, 10);
    ASSERT_EQ(tiny.size(), 10) << text(tiny);
    EXPECT_TRUE(tiny.at(0).startsWith("nas1  warning  "));
    EXPECT_EQ(indexStarting(tiny, "CPU "), 1);
    EXPECT_EQ(indexStarting(tiny, "Tasks "), 7);
    EXPECT_EQ(indexStarting(tiny, "  vg0"), -1);
    EXPECT_EQ(indexStarting(tiny, "    PID USER"), 8);
    EXPECT_TRUE(tiny.at(9).startsWith("   4242 www-data"));
    // A single row holds the header alone.
    EXPECT_EQ(text(renderTop(recordedAnswer(), 40, 1)), text({tiny.at(0)}));
}

TEST(CtlTop, MissingSamplesErrorsAndHostileTextAreShownSafely)
{
    EXPECT_EQ(text(renderTop(QJsonObject{{"err", 0}, {"results", QJsonObject()}}, 80, 24)),
              "nasbroltctl top\nwaiting for the first sample");
    EXPECT_EQ(text(renderTop(QJsonObject{{"err", 9972}}, 80, 24)),
              "nasbroltctl top\nnasbrolt answered error 9972: unknown command");
    EXPECT_EQ(text(renderTop(QJsonObject{{"err", "0"}, {"errmsg", "odd"}}, 80, 24)),
              "nasbroltctl top\nnasbrolt answered error \"0\": odd");

    // Only "/" mounted: the daemon sends a null rate and nothing is summed.
    QJsonObject answer = recordedAnswer();
    QJsonObject results = answer.value("results").toObject();
    results.insert(
        "storage",
        QJsonObject{{"userate", QJsonValue::Null}, {"size", 0}, {"free", 0}, {"capacity", 0}});
    // Process names and events come from anyone: no escape sequence may pass.
    results.insert("process",
                   QJsonObject{{"processes", QJsonArray{QJsonObject{
                                                 {"pid", "1"},
                                                 {"user", "数据数据数据"},
                                                 {"cpu", "0.0"},
                                                 {"mem", "0.0"},
                                                 {"command", "x\033]0;pwned\007\033[2J\ty"}}}}});
    answer.insert("results", results);
    const QStringList lines = renderTop(answer, 60, 30);
    EXPECT_NE(lines.indexOf("Store 0 B / 0 B  -"), -1) << text(lines);
    const int row = indexStarting(lines, "      1 ");
    ASSERT_NE(row, -1) << text(lines);
    // Wide characters count twice: four of them fill the user column.
    EXPECT_EQ(text({lines.at(row)}), "      1 数据数据   0.0   0.0 x?]0;pwned??[2J y");
    EXPECT_EQ(text({ctlFitLine("数据x", 3)}), "数");
    EXPECT_EQ(text({ctlFitLine("e\u0301\u202etc", 2)}), "e\u0301t"); // a mark takes no column
}

TEST(CtlWatch, HeaderKeepsTheStampRightWhileItFits)
{
    const QByteArray output = "{\n    \"err\": 0\n}\n";
    const QString title = "Every 2.0s: nasbroltctl x";
    const QString stamp = "nas1: Tue Jun 4 10:20:00 2024";
    EXPECT_EQ(text(renderWatch(title, stamp, output, 60, 5)),
              "Every 2.0s: nasbroltctl x      nas1: Tue Jun 4 10:20:00 2024\n\n{\n"
              "    \"err\": 0\n}");
    EXPECT_EQ(text(renderWatch(title, stamp, output, 20, 3)), "Every 2.0s: nasbrolt\n\n{");
    EXPECT_EQ(text({ctlIntervalText(2), ctlIntervalText(0.5), ctlIntervalText(0.25)}),
              "2.0\n0.5\n0.25");
}
