#pragma once

#include "FSI/Audio/ExternalClockSource.h"
#include "OrbModule/Inc/Patching/iPatcher.h"

#include <boost/asio/io_service.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace audio {
class AudioDmaEndpoint;
class AudioDmaManager;
} // namespace audio
namespace fsi {
class DeviceRegistry;
}

/// Stands between the slot bookkeeping and the ADMA engine: makes the module's three audio endpoints, and turns
/// joined slots into routes. Main thread only; the table reaches the FPGA through the manager's sync thread.
class Patcher : public iPatcher
{
public:
    /// Registers bulk audio and both links as endpoints, which sends the first, silent table.
    /// @param service the main service, which nothing here needs; @param endpointId gives the ADMA address of link 0
    /// or 1. It is asked twice a link and may block.
    /// @throws std::system_error if the bulk block is missing; std::runtime_error, with the remedy in its text, if an
    /// address is not 1 to 7 or belongs to two endpoints.
    Patcher(boost::asio::io_service& service, fsi::DeviceRegistry* registry,
            std::shared_ptr<audio::AudioDmaManager> manager,
            const std::function<std::uint8_t(std::uint32_t)>& endpointId);

    /// Entry i of the source feeds entry i of the destination as far as both lists go. A pair with a slot above 511
    /// is left out, and so is the whole patch if one of its ports does not exist; the table is written in any case.
    void ProcessPatchUnpatch(const LinkPatch& patch, bool make) override;
    void ProcessUnpatches(const std::vector<LinkPatch>& patches) override;
    void RemoveAllPatches() override;

    const std::shared_ptr<audio::AudioDmaManager>& GetManager() const { return mManager; }
    /// Clock sources in the order of the ports: bulk, link 0, link 1.
    const std::vector<std::shared_ptr<audio::ExternalClockSource>>& GetClockSources() const { return mClockSources; }

private:
    void MakeLinkFSI(const std::vector<std::uint32_t>& links,
                     const std::function<std::uint8_t(std::uint32_t)>& endpointId);
    void CheckAddress(std::uint32_t address, const std::string& endpoint, const std::string& remedy) const;
    void Connect(const LinkPatch& patch);
    void ConnectToSilence(const LinkPatch& patch);
    /// The endpoint of a port; null, with a line in the log, for any other number.
    const audio::AudioDmaEndpoint* FindEndpoint(UINT8GIGEPORT port) const;

    fsi::DeviceRegistry* mRegistry;
    std::shared_ptr<audio::AudioDmaManager> mManager;
    /// Indexed by Routing::PortsEnum.
    std::vector<std::shared_ptr<audio::AudioDmaEndpoint>> mEndpoints;
    std::vector<std::shared_ptr<audio::ExternalClockSource>> mClockSources;
};
