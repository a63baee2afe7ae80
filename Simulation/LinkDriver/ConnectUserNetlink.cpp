#include "OrbModule/Inc/LinkManager/LinkDriverSocket.h"
#include "Simulation/LinkDriver/LinkDriver.h"

#include <netlink/netlink.h>
#include <netlink/socket.h>

int ConnectLinkDriverSocket(nl_sock* socket)
{
    const int result = nl_connect(socket, NETLINK_USERSOCK);
    if (result == 0) nl_socket_set_peer_port(socket, sim::LinkDriver::NETLINK_PORT);
    return result;
}
