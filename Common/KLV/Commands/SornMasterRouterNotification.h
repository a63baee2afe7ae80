#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>
#include <map>
#include <string>

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
