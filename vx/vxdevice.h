#pragma once

#include <QString>

// Device arguments end up in root command lines. Only an absolute path under
// /dev whose segments are letters, digits and "._+:@-" passes: no "..", no
// blank, quote or control character, no segment starting with "-".
bool isDevicePath(const QString& dev);
