#pragma once

struct nl_sock;

/// Connects a fresh netlink socket to where the link driver is reached. Defined once for the unit (the kernel's
/// generic netlink) and once for the simulation (a process on a userspace netlink port); the link decides which a
/// program gets.
/// @return 0, or a negative error of the netlink library.
int ConnectLinkDriverSocket(nl_sock* socket);
