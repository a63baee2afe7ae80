#pragma once

// What the module reports to the Orb router besides devices.

#include "Common/KLV/Command.h"

#include <cstdint>
#include <map>
#include <string>

/// Reports the internal state of a box; the HID is also sent as decimal text.
class IoBoxInternalsCmd : public ForwardableCommand<IoBoxInternalsCmd, 844>
{
    KLV_COMMAND_FIELDS(IoBoxInternalsCmd, (std::uint32_t, Bitmap), (Hid, Hid), (std::string, HidText))
};

/// One link of a device has changed state.
class RemoteCableStateCmd : public Command<RemoteCableStateCmd, 893>
{
    KLV_COMMAND_FIELDS(RemoteCableStateCmd, (Hid, Hid), (bool, Primary), (bool, Online))
};

/// What became of the master router, for the console on the local port.
class SornMasterRouterNotification
{
public:
    enum Number : std::uint8_t { SAMPLE_RATE = 0, DEFAULT_ID = 1, DETECTED = 2, LOST = 3, UNKNOWN = 4 };

    class Command;
};

class SornMasterRouterNotification::Command : public ::Command<SornMasterRouterNotification::Command, 7020>
{
public:
    explicit Command(std::uint8_t notification);
    explicit Command(KLVCommandReadSet& set);

    /// Title and body by number, joined by "|"; not on the wire.
    std::map<std::uint8_t, std::string> Messages;
    /// The text of this notification; that of UNKNOWN for a number that has none.
    const std::string& GetMessage() const;

    KLV_FIELDS((std::uint8_t, Notification))
};

/// The two link ports see different devices (true), or no longer do.
class SornMixedHIDError : public Command<SornMixedHIDError, 7021>
{
    KLV_COMMAND_FIELDS(SornMixedHIDError, (bool, Active))
};
