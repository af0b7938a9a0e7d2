#pragma once

#include <QString>

// Rules the volume code checks before it builds a command line.

// LVM's own rule for group and volume names: letters, digits and "+_.-",
// not starting with "-", not "." or "..", 1 to 127 characters.
bool isLvmName(const QString& name);
// A password reaches a root shell line unquoted: empty, or at most 512
// characters, not starting with "-", each one of A-Za-z0-9!@%^+=:,._/- or a
// printable non-ASCII character.
bool isLvmPassword(const QString& pwd);

// Thin volumes: whether the request is small enough for a pool of its own
// size (size < 96 % of the group's free MiB), the group's free MiB rounded up
// from bytes, and the volume size from a pool's byte size (rounded up to
// MiB; fallback when bytes is not above 0).
int lvmFreeMb(qint64 freeBytes);
bool thinPoolOwnSize(int sizeMb, int freeMb);
int thinSizeFromPool(qint64 poolBytes, int fallbackMb);
