#pragma once

// Which commands the directory handles and which it relays, as tables of types.

#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "Common/KLV/Commands/IoControlCommands.h"
#include "Common/KLV/Commands/PatchCommands.h"
#include "Common/KLV/Commands/RouterCommands.h"
#include "Common/KLV/Commands/UpdateCommands.h"
#include "OrbModule/Inc/DeviceManager/DeviceManager.h"

namespace forwarding {

/// Where a command names the device that it is meant for.
enum class Target { Hid, Port, Destination };

/// A command on its way to a device: its id, its class, and where the target is.
template <std::uint32_t Id, class CommandClass, Target Where>
struct ToDevice
{
    using Command = CommandClass;
    static_assert(Command::ID == Id);

    static Hid GetTarget(const Command& command)
    {
        if constexpr (Where == Target::Hid) {
            return command.GetHid();
        } else if constexpr (Where == Target::Port) {
            return command.GetPort().GetHid();
        } else {
            return command.GetDestination().GetHid();
        }
    }
    static void Forward(DeviceManager& devices, const Command& command, UINT8GIGEPORT port)
    {
        devices.ForwardCmd(command, port, GetTarget(command));
    }
};

enum class Way { Both, Up };

/// A command on its way between the local device and the Orb router.
template <std::uint32_t Id, class CommandClass, Way Ways>
struct ToOrb
{
    using Command = CommandClass;
    static_assert(Command::ID == Id);

    static void Forward(DeviceManager& devices, const Command& command, UINT8GIGEPORT port)
    {
        if constexpr (Ways == Way::Both) {
            devices.ForwardToLocal(command, port);
        } else {
            devices.ForwardUp(command, port);
        }
    }
};

template <class... Rows>
struct Table
{
    template <class Processor>
    static void Connect(Processor& processor, DeviceManager& devices)
    {
        (ConnectRow<Rows>(processor, devices), ...);
    }

private:
    template <class Row, class Processor>
    static void ConnectRow(Processor& processor, DeviceManager& devices)
    {
        using Command = typename Row::Command;
        processor.template Connect<Command>([&devices](const std::shared_ptr<const Command>& command,
                                                       UINT8GIGEPORT port,
                                                       StreamType) { Row::Forward(devices, *command, port); });
    }
};

using DeviceCommands =
    Table<ToDevice<802, IoSetInputParams, Target::Hid>, ToDevice<808, IoSetOutputGain, Target::Hid>,
          ToDevice<873, IoSetGPOParams, Target::Hid>, ToDevice<804, IoSetGPOPatch, Target::Hid>,
          ToDevice<812, IoPortSetLinkCmd, Target::Hid>, ToDevice<815, PortBitmapCmd, Target::Hid>,
          ToDevice<818, SetDolbyEModuleSource, Target::Destination>,
          ToDevice<3001, SetSDIMetaDataDisableCmd, Target::Hid>, ToDevice<817, SetSDIMetaDataCmd, Target::Hid>,
          ToDevice<816, IoOutputMuteCmd, Target::Hid>, ToDevice<872, RenamePortCmd, Target::Port>,
          ToDevice<821, IoOutputsOffsetCmd, Target::Hid>, ToDevice<891, IoSyncSwap, Target::Hid>,
          ToDevice<875, IoSetSampleRateCmd, Target::Hid>, ToDevice<887, AoIPAddressesCmd, Target::Hid>,
          ToDevice<823, IoK2ModPortData, Target::Port>>;

using OrbCommands = Table<ToOrb<805, IoGPIUpdate, Way::Both>, ToOrb<807, IoActiveAudio, Way::Both>,
                          ToOrb<3010, SDIMetaDataPresetResponseCmd, Way::Both>, ToOrb<871, ModIOCardFailure, Way::Up>,
                          ToOrb<870, DanteConfigChange, Way::Up>, ToOrb<880, ForwardToActiveCmd, Way::Both>,
                          ToOrb<674, SetRouterSampleRateCmd, Way::Both>>;

} // namespace forwarding

/// Connects the relay to every command that it passes on, in the order of its two tables.
template <class Processor>
void ConnectForwarding(Processor& processor, DeviceManager& devices)
{
    forwarding::DeviceCommands::Connect(processor, devices);
    forwarding::OrbCommands::Connect(processor, devices);
}

/// Connects the handlers of the discovery exchange, in the order of their table.
template <class Processor>
void ConnectDiscovery(Processor& processor, DeviceManager& devices)
{
    const auto describe = [&devices](const auto& command, UINT8GIGEPORT port, StreamType type) {
        devices.ProcessIOCmd(command, port, type);
    };
    const auto to = [&devices](auto handler) {
        return [&devices, handler](const auto& command, UINT8GIGEPORT port, StreamType type) {
            (devices.*handler)(command, port, type);
        };
    };
    processor.template Connect<IoInfo>(describe);
    processor.template Connect<IoInfoCard>(describe);
    processor.template Connect<IoInfoK2Mod>(describe);
    processor.template Connect<RouterInfo>(describe);
    processor.template Connect<RemoteIoUpdate>(to(&DeviceManager::OnRemoteIoUpdate));
    processor.template Connect<RemoteRouterUpdate>(to(&DeviceManager::OnRemoteRouterUpdate));
    processor.template Connect<IoInfoDevReq>(to(&DeviceManager::OnIoInfoDevReq));
    processor.template Connect<IoInfoReq>(to(&DeviceManager::OnIoInfoReq));
    processor.template Connect<RouterInfoReq>(to(&DeviceManager::OnRouterInfoReq));
    processor.template Connect<ChainLengthCmd>(to(&DeviceManager::OnChainLength));
    processor.template Connect<IoSampleRateCapabilities>(describe);
    processor.template Connect<DeviceCheckResultsCmd>(to(&DeviceManager::OnDeviceCheckResults));
}
