#pragma once

#include "OrbModule/Inc/DeviceManager/DeviceRecord.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <unordered_map>
#include <vector>

/// The device that is plugged straight into the links, with its software check and its port maps. There is always
/// exactly one; Hid INVALID_HID means that there is none. A box that has gone keeps its Hid and loses its Type.
/// Main thread.
class LocalDevice : public DeviceRecord
{
public:
    /// From the number of an audio port to its TDM slots on the link.
    using PortMap = std::unordered_map<std::uint16_t, std::vector<std::uint32_t>>;

    static constexpr std::chrono::milliseconds FirstIoTimeout{1000};
    static constexpr std::chrono::milliseconds DescribedIoTimeout{2000};

    /// How long a link to this box may stay without a heartbeat.
    std::chrono::milliseconds IoTimeout = FirstIoTimeout;
    /// Indexed by isPri: a software check is under way on that link, or has found the device up to date.
    std::array<bool, 2> AUUnderway{};
    std::array<bool, 2> AUDone{};
    /// The two links see different devices.
    bool MixedHid = false;
    /// Never emptied: the description of a new box writes over what is there.
    PortMap Inputs;
    PortMap Outputs;

    bool IsAUUnderway() const { return AUUnderway[0] || AUUnderway[1]; }
    bool IsAUDone() const { return AUDone[0] || AUDone[1]; }
    /// Forgets the software check of a link.
    /// @param index 0 for port 1, 1 for port 2; anything else is only logged.
    void ResetAUInfo(std::uint32_t index);
    /// The index of a port for ResetAUInfo; 2, which is out of range, for what is no link.
    static std::uint32_t AUIndex(UINT8GIGEPORT port);
};
