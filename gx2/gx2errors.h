#pragma once

// Result codes shared across the RPC contract. 0 is success everywhere.
constexpr int kErrOk = 0;
constexpr int kErrUnknownCommand = 9972;
constexpr int kErrDatabase =
    9975; // database not opened, statements not loaded, or a statement failed
constexpr int kErrWriteFailed = 9990;
constexpr int kErrBusy = 9992;
constexpr int kErrExists = 9993;
constexpr int kErrNothing = 9994;
constexpr int kErrBadParam = 9995;
constexpr int kErrNoAnswer = 9998;
constexpr int kErrFailed = 9999;
