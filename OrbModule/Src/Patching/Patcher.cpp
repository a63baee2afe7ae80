#include "OrbModule/Inc/Patching/Patcher.h"

#include "Audit/Audit.h"
#include "FSI/Audio/AudioDmaManager.h"
#include "FSI/Audio/BulkAudioFsi.h"
#include "FSI/Audio/K2FsiLink.h"
#include "FSI/Core/DeviceRegistry.h"
#include "FSI/Core/HostFsi.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace {

constexpr int BulkClockId = 4;
constexpr std::uint32_t LastAddress = 7;
constexpr audio::AudioDmaTransaction Silence = 0;

/// The engine holds any other slot for a programming fault.
bool CheckSlot(std::uint32_t slot)
{
    if (Routing::IsSlot(slot)) return true;
    AUDIT_STREAM(Fault, "Patcher slot out of range " << slot << '\n');
    return false;
}

audio::AudioDmaTransaction ToTransaction(const audio::AudioDmaEndpoint& endpoint, std::uint32_t slot)
{
    return audio::MakeTransaction(endpoint.GetAddress(), static_cast<std::uint16_t>(slot));
}

} // namespace

Patcher::Patcher(boost::asio::io_service&, fsi::DeviceRegistry* registry,
                 std::shared_ptr<audio::AudioDmaManager> manager,
                 const std::function<std::uint8_t(std::uint32_t)>& endpointId)
    : mRegistry(registry), mManager(std::move(manager))
{
    AUDIT_LOG(Information, "Starting Patcher\n");
    CheckAddress(fsi::HostFsi(OrbModule::BulkAudioFsi::BlockName, 0).GetBlockId(), "the bulk audio block",
                 "load firmware that gives this block an address of its own");
    const auto bulk = mRegistry->Register<OrbModule::BulkAudioFsi>("bulk", BulkClockId);
    AUDIT_STREAM(RouterAudioRoute, "BuldAudio DMA Id " << bulk->GetAddress() << '\n');
    mEndpoints.push_back(bulk);
    mClockSources.push_back(bulk);
    MakeLinkFSI({0, 1}, endpointId);
    AUDIT_STREAM(RouterAudioRoute, "Patcher Register Endpoints FSI " << mEndpoints.size() << '\n');
    mManager->RegisterEndpoints(mEndpoints);
}

void Patcher::MakeLinkFSI(const std::vector<std::uint32_t>& links,
                          const std::function<std::uint8_t(std::uint32_t)>& endpointId)
{
    for (const std::uint32_t link : links) {
        const std::string alias = "k" + std::to_string(link);
        const unsigned shown = endpointId(link);
        AUDIT_STREAM(RouterAudioRoute, "MakeLinkFSI For Link " << link << " Alias " << alias << " With "
                                                               << Routing::SLOTS_PER_PORT << " Slots "
                                                               << " ID " << shown << '\n');
        const std::uint8_t address = endpointId(link);
        CheckAddress(address, "k2link" + std::to_string(link),
                     "see that the link driver is loaded and reports the address that the firmware gives this link");
        const auto device = mRegistry->Register<audio::K2FsiLink>(alias, address, static_cast<int>(link) + 1,
                                                                  static_cast<int>(Routing::SLOTS_PER_PORT));
        mEndpoints.push_back(device);
        mClockSources.push_back(device);
    }
}

void Patcher::CheckAddress(std::uint32_t address, const std::string& endpoint, const std::string& remedy) const
{
    const std::string subject = "ADMA endpoint address " + std::to_string(address) + " of " + endpoint;
    if (address == 0 || address > LastAddress) {
        throw std::runtime_error(subject + " is not 1 to " + std::to_string(LastAddress) + ": " + remedy);
    }
    const bool taken = std::any_of(mEndpoints.begin(), mEndpoints.end(),
                                   [&](const auto& other) { return other->GetAddress() == address; });
    if (taken) throw std::runtime_error(subject + " is that of another endpoint as well: " + remedy);
}

void Patcher::ProcessPatchUnpatch(const LinkPatch& patch, bool make)
{
    AUDIT_STREAM(RouterAudioRoute, "Patcher::ProcessPatchUnpatch " << patch << " Patch " << FlagText(make) << '\n');
    if (make) {
        Connect(patch);
    } else {
        ConnectToSilence(patch);
    }
    mManager->Synchronise();
}

void Patcher::Connect(const LinkPatch& patch)
{
    const audio::AudioDmaEndpoint* const source = FindEndpoint(patch.source.port);
    const audio::AudioDmaEndpoint* const destination = FindEndpoint(patch.destination.port);
    if (!source || !destination) return;
    const auto& from = patch.source.slots;
    const auto& to = patch.destination.slots;
    for (std::size_t i = 0; i < std::min(from.size(), to.size()); ++i) {
        if (!CheckSlot(from[i]) || !CheckSlot(to[i])) continue;
        mManager->SetAudioRoute(ToTransaction(*source, from[i]), ToTransaction(*destination, to[i]));
    }
}

void Patcher::ConnectToSilence(const LinkPatch& patch)
{
    AUDIT_STREAM(RouterAudioRoute, "Patcher::ConnectToSilence " << patch << '\n');
    const audio::AudioDmaEndpoint* const destination = FindEndpoint(patch.destination.port);
    if (!destination) return;
    for (const std::uint32_t slot : patch.destination.slots) {
        if (CheckSlot(slot)) mManager->SetAudioRoute(Silence, ToTransaction(*destination, slot));
    }
}

void Patcher::ProcessUnpatches(const std::vector<LinkPatch>& patches)
{
    for (const LinkPatch& patch : patches)
        ConnectToSilence(patch);
    mManager->Synchronise();
}

void Patcher::RemoveAllPatches()
{
    AUDIT_LOG(RouterAudioRoute, "Patcher::RemoveAllPatches\r\n");
    mManager->ClearAllRoutes();
    mManager->Synchronise();
}

const audio::AudioDmaEndpoint* Patcher::FindEndpoint(UINT8GIGEPORT port) const
{
    if (port < mEndpoints.size()) return mEndpoints[port].get();
    AUDIT_STREAM(Fault, "Patcher port out of range " << unsigned{port} << '\n');
    return nullptr;
}
