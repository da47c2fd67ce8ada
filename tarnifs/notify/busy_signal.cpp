#include "tarnifs/notify/busy_signal.h"

#include "tarnifs/notify/tray_pipe.h"

BusySignal::~BusySignal()
{
    if (on) {
        sendPipeMsg(BUSY_OFF);
    }
}

void BusySignal::begin()
{
    sendPipeMsg(BUSY_ON);
    on = true;
}
