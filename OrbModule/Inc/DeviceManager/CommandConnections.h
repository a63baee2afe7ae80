#pragma once

// Which commands the directory handles and which it relays, in the order of connection.

#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "Common/KLV/Commands/IoControlCommands.h"
#include "Common/KLV/Commands/PatchCommands.h"
#include "Common/KLV/Commands/RouterCommands.h"
#include "Common/KLV/Commands/UpdateCommands.h"
#include "OrbModule/Inc/DeviceManager/DeviceManager.h"

namespace forwarding {

/// The device that a command is meant for.
template <class Command>
Hid GetTarget(const Command& command)
{
    return command.GetHid();
}
inline Hid GetTarget(const SetDolbyEModuleSource& command)
{
    return command.GetDestination().GetHid();
}
inline Hid GetTarget(const RenamePortCmd& command)
{
    return command.GetPort().GetHid();
}
inline Hid GetTarget(const IoK2ModPortData& command)
{
    return command.GetPort().GetHid();
}

template <class... Commands, class Processor, class Forward>
void Connect(Processor& processor, Forward forward)
{
    (processor.template Connect<Commands>([forward](const std::shared_ptr<const Commands>& command, UINT8GIGEPORT port,
                                                    StreamType) { forward(*command, port); }),
     ...);
}

} // namespace forwarding

/// Connects the relay to every command that it passes on: to a device, and on the way to the Orb router.
template <class Processor>
void ConnectForwarding(Processor& processor, DeviceManager& devices)
{
    const auto toDevice = [&devices](const auto& command, UINT8GIGEPORT port) {
        devices.ForwardCmd(command, port, forwarding::GetTarget(command));
    };
    const auto toLocal = [&devices](const DeskCommand& command, UINT8GIGEPORT port) {
        devices.ForwardToLocal(command, port);
    };
    const auto up = [&devices](const DeskCommand& command, UINT8GIGEPORT port) { devices.ForwardUp(command, port); };
    forwarding::Connect<IoSetInputParams, IoSetOutputGain, IoSetGPOParams, IoSetGPOPatch, IoPortSetLinkCmd,
                        PortBitmapCmd, SetDolbyEModuleSource, SetSDIMetaDataDisableCmd, SetSDIMetaDataCmd,
                        IoOutputMuteCmd, RenamePortCmd, IoOutputsOffsetCmd, IoSyncSwap, IoSetSampleRateCmd,
                        AoIPAddressesCmd, IoK2ModPortData>(processor, toDevice);
    forwarding::Connect<IoGPIUpdate, IoActiveAudio, SDIMetaDataPresetResponseCmd, ForwardToActiveCmd,
                        SetRouterSampleRateCmd>(processor, toLocal);
    forwarding::Connect<ModIOCardFailure, DanteConfigChange>(processor, up);
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
