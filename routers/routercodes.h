#pragma once

#include "gx2/gx2errors.h"

// Codes only some routers answer, beside the shared ones of gx2errors.h.

// The audit router ("smbaudit_" commands).
#define ROUTER_SMBAUDIT_CODES(X)                                                                   \
    X(kErrNotRunning, 9905, "configuration saved while the audit collector is not running")        \
    X(kErrNotOpen, 9908, "the audit database is not open")

// The event log's store (NASLog); "naslog_append" answers kErrWriteFailed instead.
#define ROUTER_NASLOG_CODES(X)                                                                     \
    X(kErrNoChange, kErrFailed, "the event was not stored: a required field is missing")

ROUTER_SMBAUDIT_CODES(GX2_CODE_CONSTANT)
ROUTER_NASLOG_CODES(GX2_CODE_CONSTANT)
