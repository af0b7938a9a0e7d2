#pragma once

#include "lnx2/lnx2process.h"

#include <QStringList>

// A run of one package tool. apt and dpkg get DEBIAN_FRONTEND=noninteractive
// set, whatever the caller's environment says. sharedBudget: the end counts
// from the start of the call (the command runner's way) instead of from the
// moment the tool started.
LNX2ProcRequest packageRequest(const QStringList& words, int startMs, int finishMs,
                               bool sharedBudget, bool closedInput = false);

// Start and end within one limit, as the command runner counts.
LNX2ProcResult packageRunWithin(const QStringList& words, int limitMs);

// rm of dpkg's own files.
constexpr int kPackageRmMs = 5000;

// As a shell would have passed it: with the inner quotes dpkg gets no action.
inline const char kConfMissOption[] = "Dpkg::Options::=--force-confmiss";
