#include "gx2/gx2locallistener.h"

void GX2LocalListener::incomingConnection(quintptr descriptor)
{
    emit accepted(qintptr(descriptor));
}
