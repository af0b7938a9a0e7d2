#pragma once

#include <QList>
#include <QString>

// What a result code means where it came from. The same number means
// different things in different places, so each code belongs to a scope:
// "daemon" for the answers every router shares, a command prefix ("lvm_*")
// where a router answers codes of its own, or a library class ("VXRaid").
struct CtlCode
{
    int code;
    const char* name; // the constant, "kErrWriteFailed"
    const char* scope;
    const char* meaning;
};

// The meaning of code in scope, which is a daemon command ("lvm_creating")
// or a library class ("VXLvm"). A command's router is asked first, then the
// daemon's shared codes; a library class has only its own. Empty when the
// code means nothing there.
QString codeMeaning(int code, const QString& scope);

// Every code of every scope, by code and then scope.
QList<CtlCode> codeTable();
