#pragma once

#include "OrbModule/Inc/DeviceManager/DeviceRecord.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <unordered_map>
#include <vector>

/// How far the software check of the local device is on one link.
enum class SoftwareCheck { None, UnderWay, Passed };

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
    /// By Side. What the device is asked depends on IsAUUnderway and IsAUDone: a state of any link.
    std::array<SoftwareCheck, 2> Checks{};
    /// The two links see different devices.
    bool MixedHid = false;
    /// Never emptied: the description of a new box overwrites the old one.
    PortMap Inputs;
    PortMap Outputs;

    SoftwareCheck Check(Side side) const { return Checks[static_cast<std::size_t>(side)]; }
    SoftwareCheck& Check(Side side) { return Checks[static_cast<std::size_t>(side)]; }
    bool IsAUUnderway() const { return HasCheck(SoftwareCheck::UnderWay); }
    bool IsAUDone() const { return HasCheck(SoftwareCheck::Passed); }
    /// Forgets the software check of a link.
    /// @param index a link index; one that no link has is only logged.
    void ResetAUInfo(std::uint32_t index);

private:
    bool HasCheck(SoftwareCheck state) const { return Checks[0] == state || Checks[1] == state; }
};
