#include "Sockets/StreamSocket.h"

void StreamSocket::SetConnecting(bool value)
{
    if (value == mConnecting) return;
    mConnecting = value;
    SetTimeout(value ? mConnectTimeout : 0);
}
