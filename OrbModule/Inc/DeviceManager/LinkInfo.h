#pragma once

#include "MiscSource/GlobalConstants.h"

#include <cstdint>

/// The state of a device on one of the module's two links. A plain value of the main thread.
///
/// The other fields mean something only while the link is online; going offline forgets them.
class LinkInfo
{
public:
    /// The module's port on which the device is heard.
    Routing::PortsEnum Port = Routing::UNKNOWN_PORT;
    /// The module's address on this link, host order.
    std::uint32_t LocalIp = 0;
    /// The remote end's own gigabit port number.
    UINT8GIGEPORT RemoteGigE = UNKNOWN_GIGE_PORT;
    /// The remote end's address, host order.
    std::uint32_t RemoteIp = 0;
    /// The description of a remote device has been asked for on this link and has not come.
    bool DescriptionPending = false;

    bool IsOnline() const { return mOnline; }
    /// Clearing resets all other fields, setting leaves them.
    void SetOnline(bool online)
    {
        if (!online) *this = LinkInfo();
        mOnline = online;
    }

private:
    bool mOnline = false;
};
