#include "OrbModule/Inc/DeviceManager/PortMaps.h"

#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "OrbModule/Inc/DeviceManager/CardModels.h"
#include "OrbModule/Inc/DeviceManager/LocalDevice.h"

#include <algorithm>

namespace {

using Slots = LocalDevice::PortMap::mapped_type;

/// At a double rate the second TDM slot of a card's port is this far from the first.
constexpr std::uint32_t DoubleRateOffset = 16;
/// Number of the first audio port of a modular box's card, per slot.
constexpr std::uint32_t PortsPerCard = 64;
/// A card may name ports without end; the number of an audio port has 16 bits.
constexpr std::size_t MaxCardPorts = 65536;

void AddCard(LocalDevice::PortMap& ports, std::uint16_t& next, std::uint32_t first, std::uint32_t count,
             bool doubleRate)
{
    for (std::uint32_t slot = first; slot < first + count; ++slot, ++next) {
        ports[next] = doubleRate ? Slots{slot, slot + DoubleRateOffset} : Slots{slot};
    }
}

void AddHardwarePorts(LocalDevice::PortMap& ports, std::uint16_t next, const std::vector<std::int16_t>& hardware,
                      bool doubleRate)
{
    const std::size_t step = doubleRate ? 2 : 1;
    const std::size_t count = std::min(hardware.size(), MaxCardPorts);
    for (std::size_t i = 0; i < count; i += step, ++next) {
        Slots& slots = ports[next];
        slots.clear();
        // A list of an odd count leaves its last port with the one slot it has.
        for (std::size_t j = i; j < std::min(i + step, count); ++j)
            slots.push_back(static_cast<std::uint32_t>(std::int32_t{hardware[j]}));
    }
}

void AddModulePorts(LocalDevice::PortMap& ports, std::uint32_t count, bool doubleRate)
{
    for (std::uint32_t i = 0; i < std::min(count, Routing::SLOTS_PER_PORT); ++i) {
        ports[static_cast<std::uint16_t>(i)] = doubleRate ? Slots{2 * i, 2 * i + 1} : Slots{i};
    }
}

} // namespace

void PortMaps::Build(LocalDevice& local, const IoInfo& box)
{
    const bool doubleRate = SampleRates::IsDoubleRate(local.SampleRate);
    std::uint16_t in = 0;
    std::uint16_t out = 0;
    std::uint32_t slot = 0;
    for (const std::string& code : box.GetSlots()) {
        local.IoTimeout = LocalDevice::DescribedIoTimeout;
        const CardModel card = GetCardModel(code, doubleRate);
        AddCard(local.Inputs, in, slot * card.inputStride, card.inputs, doubleRate);
        AddCard(local.Outputs, out, slot * card.outputStride, card.outputs, doubleRate);
        ++slot;
    }
}

void PortMaps::Build(LocalDevice& local, const DeviceInfoStorage::CommandMap& cards)
{
    const bool doubleRate = SampleRates::IsDoubleRate(local.SampleRate);
    for (const auto& entry : cards) {
        const auto card = std::dynamic_pointer_cast<const IoInfoCard>(entry.second);
        if (entry.first == DeviceInfoStorage::LastSlot || card == nullptr) continue;
        const auto first = static_cast<std::uint16_t>(entry.first * PortsPerCard);
        AddHardwarePorts(local.Inputs, first, card->GetInputs(), doubleRate);
        AddHardwarePorts(local.Outputs, first, card->GetOutputs(), doubleRate);
    }
}

void PortMaps::Build(LocalDevice& local, const IoInfoK2Mod& module)
{
    const bool doubleRate = SampleRates::IsDoubleRate(local.SampleRate);
    AddModulePorts(local.Inputs, module.GetInputs(), doubleRate);
    AddModulePorts(local.Outputs, module.GetOutputs(), doubleRate);
}
