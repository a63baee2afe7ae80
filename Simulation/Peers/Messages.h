#pragma once

#include "Simulation/Peers/CommandIds.h"
#include "Simulation/Peers/Wire.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

/// The commands that peers build, by their fields in the order of the wire. Addresses in host order.
namespace peers::messages {

/// What the second byte of an update names.
enum RemoteType : std::uint32_t { Modular = 0, Fixed = 1, Router = 3, Module = 4, Hub = 5, Orb = 6, AoIP = 7 };

/// An audio port in a patch.
struct Port
{
    std::uint32_t hid = 0xFFFFFFFF;
    std::uint32_t style = 0;
    std::uint32_t index = 0xFFF;
};

struct Patch
{
    Port source;
    std::uint32_t link = 255;
    std::vector<std::uint32_t> slots;
    Port destination;
    bool make = true;
    Port original;
    bool useMe = false;
};

inline Command IoInfo(std::uint32_t hid, std::uint32_t type, const std::array<std::string, 5>& cards)
{
    Writer writer(IO_INFO);
    writer.U32(hid).U8(type);
    for (const std::string& card : cards)
        writer.Text(card);
    return writer.Take();
}

inline Command IoInfoCard(std::uint32_t hid, std::uint32_t slot, const std::string& name,
                          const std::vector<std::uint32_t>& inputs, const std::vector<std::uint32_t>& outputs)
{
    return Writer(IO_INFO_CARD)
        .U32(hid)
        .U8(slot)
        .Text(name)
        .List16(inputs)
        .List16(outputs)
        .U8(0)
        .U8(0)
        .U8(0)
        .U8(0)
        .Take();
}

inline Command IoInfoK2Mod(std::uint32_t hid, std::uint32_t inputs, std::uint32_t outputs)
{
    return Writer(IO_INFO_K2MOD).U32(hid).U32(inputs).U32(outputs).Text("Module").Text("").Text("").Take();
}

inline Command RouterInfo(std::uint32_t hid, std::uint32_t type, std::uint32_t inputs, std::uint32_t outputs)
{
    return Writer(ROUTER_INFO, 1).U32(hid).U8(type).U32(inputs).U32(outputs).U32(0).Take();
}

inline Command RemoteIoUpdate(std::uint32_t type, std::uint32_t hid, std::uint32_t address, std::uint32_t owner,
                              std::uint32_t rate, const std::vector<std::uint32_t>& rates)
{
    return Writer(REMOTE_IO_UPDATE).U8(type).U32(hid).U32(address).U32(owner).U32(rate).List32(rates).Take();
}

inline Command RemoteRouterUpdate(std::uint32_t type, std::uint32_t hid, std::uint32_t address, std::uint32_t owner)
{
    return Writer(REMOTE_ROUTER_UPDATE, 1).U8(type).U32(hid).U32(address).U32(owner).Take();
}

inline Command IoSampleCapabilities(std::uint32_t hid, std::uint32_t rate, const std::vector<std::uint32_t>& rates)
{
    return Writer(IO_SAMPLE_CAPABILITIES).U32(hid).U32(rate).List32(rates).Take();
}

inline Command DeviceCheckResults(const std::string& address, std::uint32_t result)
{
    return Writer(DEVICE_CHECK_RESULTS).Text(address).U8(result).Take();
}

inline Command Ping(const std::string& name, std::uint32_t patches, std::uint32_t destinations)
{
    return Writer(PING).Text(name).U32(patches).U32(destinations).Take();
}

inline Command PatchAudio(const Patch& patch)
{
    Writer writer(ROUTER_PATCH_AUDIO);
    const auto port = [&writer](const Port& value) {
        writer.U32(value.hid).U32((value.style & 15) << 12 | (value.index & 0xFFF));
    };
    port(patch.source);
    writer.U8(patch.link).List32(patch.slots);
    port(patch.destination);
    writer.U8(patch.make ? 1 : 0);
    port(patch.original);
    writer.U8(patch.useMe ? 1 : 0);
    return writer.Take();
}

} // namespace peers::messages
