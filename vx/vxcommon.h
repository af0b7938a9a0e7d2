#pragma once

#include <QString>

// Helpers the storage classes share.

// Runs a command line as a child that must start within 999 ms and end
// within finishMs, exiting normally with 0. Standard output on success.
bool runTool(const QString& commandLine, QString& output, int finishMs = 9999);
// A kernel or configuration file under the path root, as text ("" when
// unreadable).
QString readSysFile(const QString& path);
