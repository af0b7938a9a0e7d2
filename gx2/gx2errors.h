#pragma once

// Result codes are declared in lists of X(constant, value, meaning): each
// list makes the constants here and the table of meanings in tools/ctlcodes.cpp,
// so a code cannot be added without saying what it means. The values are a
// contract with the web front end and never change.

// Turns one list item into its constant.
#define GX2_CODE_CONSTANT(name, code, meaning) constexpr int name = code;

// Result codes shared across the RPC contract. 0 is success everywhere.
#define GX2_DAEMON_CODES(X)                                                                        \
    X(kErrOk, 0, "success")                                                                        \
    X(kErrUnknownCommand, 9972, "unknown command")                                                 \
    X(kErrDatabase, 9975, "database not opened, statements not loaded, or a statement failed")     \
    X(kErrWriteFailed, 9990, "a write failed")                                                     \
    X(kErrBusy, 9992, "busy, an operation still in progress")                                      \
    X(kErrExists, 9993, "already present")                                                         \
    X(kErrNothing, 9994, "nothing found or nothing to do")                                         \
    X(kErrBadParam, 9995, "a required parameter is missing or invalid")                            \
    X(kErrNoAnswer, 9998, "no answer from the service socket in time")                             \
    X(kErrFailed, 9999, "general failure (often with the tool's output as message)")

GX2_DAEMON_CODES(GX2_CODE_CONSTANT)
