#include "OrbModule/Inc/LinkManager/LinkDriverSocket.h"

#include <netlink/genl/genl.h>

int ConnectLinkDriverSocket(nl_sock* socket)
{
    return genl_connect(socket);
}
