#pragma once

// All commands that this process handles or builds: their headers, and lists to walk over them.

#include "Common/KLV/CommandIdTexts.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "Common/KLV/Commands/IoControlCommands.h"
#include "Common/KLV/Commands/NotificationCommands.h"
#include "Common/KLV/Commands/PatchCommands.h"
#include "Common/KLV/Commands/RouterCommands.h"
#include "Common/KLV/Commands/UpdateCommands.h"

#include <cstdint>

namespace Klv {

enum class Direction : std::uint8_t { Received = 1, Sent = 2, Both = 3 };

/// One command: its class, the name of the class, and its direction. Any received command can also be forwarded.
template <class Class, Direction Way>
struct CommandRow
{
    using Command = Class;
    static constexpr bool IsReceived = Way != Direction::Sent;
    const char* name;
};

/// Calls visitor(CommandRow) for each of the 52 commands, by number.
template <class Visitor>
void VisitCommands(Visitor&& visitor)
{
    visitor(CommandRow<RestartMCSLinkCmd, Direction::Sent>{"RestartMCSLinkCmd"});
    visitor(CommandRow<SetRouterSampleRateCmd, Direction::Received>{"SetRouterSampleRateCmd"});
    visitor(CommandRow<IoInfoReq, Direction::Both>{"IoInfoReq"});
    visitor(CommandRow<IoInfo, Direction::Received>{"IoInfo"});
    visitor(CommandRow<IoSetInputParams, Direction::Received>{"IoSetInputParams"});
    visitor(CommandRow<IoSetGPOPatch, Direction::Received>{"IoSetGPOPatch"});
    visitor(CommandRow<IoGPIUpdate, Direction::Received>{"IoGPIUpdate"});
    visitor(CommandRow<IoActiveRouter, Direction::Sent>{"IoActiveRouter"});
    visitor(CommandRow<IoActiveAudio, Direction::Received>{"IoActiveAudio"});
    visitor(CommandRow<IoSetOutputGain, Direction::Received>{"IoSetOutputGain"});
    visitor(CommandRow<IoInfoCard, Direction::Received>{"IoInfoCard"});
    visitor(CommandRow<IoPortSetLinkCmd, Direction::Received>{"IoPortSetLinkCmd"});
    visitor(CommandRow<IoInfoDevReq, Direction::Both>{"IoInfoDevReq"});
    visitor(CommandRow<PortBitmapCmd, Direction::Both>{"PortBitmapCmd"});
    visitor(CommandRow<IoOutputMuteCmd, Direction::Received>{"IoOutputMuteCmd"});
    visitor(CommandRow<SetSDIMetaDataCmd, Direction::Received>{"SetSDIMetaDataCmd"});
    visitor(CommandRow<SetDolbyEModuleSource, Direction::Received>{"SetDolbyEModuleSource"});
    visitor(CommandRow<IoOutputsOffsetCmd, Direction::Received>{"IoOutputsOffsetCmd"});
    visitor(CommandRow<IoInfoK2Mod, Direction::Received>{"IoInfoK2Mod"});
    visitor(CommandRow<IoK2ModPortData, Direction::Received>{"IoK2ModPortData"});
    visitor(CommandRow<RouterInfo, Direction::Both>{"RouterInfo"});
    visitor(CommandRow<RemoteIoUpdate, Direction::Both>{"RemoteIoUpdate"});
    visitor(CommandRow<RemoteRouterUpdate, Direction::Both>{"RemoteRouterUpdate"});
    visitor(CommandRow<RouterInfoReq, Direction::Both>{"RouterInfoReq"});
    visitor(CommandRow<RouterMcsUpdate, Direction::Sent>{"RouterMcsUpdate"});
    visitor(CommandRow<AudioPatchFailedCmd, Direction::Sent>{"AudioPatchFailedCmd"});
    visitor(CommandRow<AudioPatchRetryForHidCmd, Direction::Both>{"AudioPatchRetryForHidCmd"});
    visitor(CommandRow<OstrelPingCmd, Direction::Both>{"OstrelPingCmd"});
    visitor(CommandRow<PatchSucessfulCmd, Direction::Both>{"PatchSucessfulCmd"});
    visitor(CommandRow<IoBoxInternalsCmd, Direction::Sent>{"IoBoxInternalsCmd"});
    visitor(CommandRow<RequestActiveMcsCmd, Direction::Received>{"RequestActiveMcsCmd"});
    visitor(CommandRow<GpiInfoRequest, Direction::Sent>{"GpiInfoRequest"});
    visitor(CommandRow<ChainLengthCmd, Direction::Received>{"ChainLengthCmd"});
    visitor(CommandRow<DanteConfigChange, Direction::Received>{"DanteConfigChange"});
    visitor(CommandRow<ModIOCardFailure, Direction::Received>{"ModIOCardFailure"});
    visitor(CommandRow<RenamePortCmd, Direction::Received>{"RenamePortCmd"});
    visitor(CommandRow<IoSetGPOParams, Direction::Received>{"IoSetGPOParams"});
    visitor(CommandRow<IoSampleRateCapabilities, Direction::Received>{"IoSampleRateCapabilities"});
    visitor(CommandRow<IoSetSampleRateCmd, Direction::Both>{"IoSetSampleRateCmd"});
    visitor(CommandRow<IoInfoReqEx, Direction::Sent>{"IoInfoReqEx"});
    visitor(CommandRow<ForwardToActiveCmd, Direction::Both>{"ForwardToActiveCmd"});
    visitor(CommandRow<RouterDetectTimeAllowanceCmd, Direction::Received>{"RouterDetectTimeAllowanceCmd"});
    visitor(CommandRow<RouterPatchAudio, Direction::Both>{"RouterPatchAudio"});
    visitor(CommandRow<AoIPAddressesCmd, Direction::Received>{"AoIPAddressesCmd"});
    visitor(CommandRow<IoSyncSwap, Direction::Received>{"IoSyncSwap"});
    visitor(CommandRow<RemoteCableStateCmd, Direction::Sent>{"RemoteCableStateCmd"});
    visitor(CommandRow<SetSDIMetaDataDisableCmd, Direction::Received>{"SetSDIMetaDataDisableCmd"});
    visitor(CommandRow<SDIMetaDataPresetResponseCmd, Direction::Received>{"SDIMetaDataPresetResponseCmd"});
    visitor(CommandRow<DevicesToCheckAndUpdateCmd, Direction::Sent>{"DevicesToCheckAndUpdateCmd"});
    visitor(CommandRow<DeviceCheckResultsCmd, Direction::Received>{"DeviceCheckResultsCmd"});
    visitor(
        CommandRow<SornMasterRouterNotification::Command, Direction::Sent>{"SornMasterRouterNotification::Command"});
    visitor(CommandRow<SornMixedHIDError, Direction::Sent>{"SornMixedHIDError"});
}

} // namespace Klv
