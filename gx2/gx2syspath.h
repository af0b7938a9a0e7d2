#pragma once

#include <QString>

// Every fixed absolute path the program touches goes through sysPath, so
// that a run with NASBROLT_ROOT set never reaches the machine's own files.
// Unset or empty root: the path unchanged. Otherwise root + path.
QString sysPath(const QString& path);

// The root in force ("" in production).
QString sysRoot();

// The directory of "nasbrolt.json", before the root is applied.
inline constexpr char kConfigDirPath[] = "/orvo/etc/quillo";
