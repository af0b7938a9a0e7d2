#pragma once

#include "tools/ctlargs.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

// The frame of --watch: the title on the left and the stamp on the right of
// the first line when both fit, a blank line, then the output, all cut to
// width columns and height lines.
QStringList renderWatch(const QString& title, const QString& stamp, const QByteArray& output,
                        int width, int height);

// "2.0" for 2, "0.5" for 0.5, "0.25" for 0.25: as precise as it was given.
QString ctlIntervalText(double seconds);

// Until SIGINT or SIGTERM (exit status 0): --watch repeats args' command and
// redraws its answer; top redraws "system_lookout" and also ends on q.
int ctlRunWatch(const CtlArgs& args);
int ctlRunTop(const CtlArgs& args);
