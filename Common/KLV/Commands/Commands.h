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

/// Every command, by number: ROW(class, direction).
#define KLV_COMMANDS(ROW)                                                                                              \
    ROW(RestartMCSLinkCmd, Sent)                                                                                       \
    ROW(SetRouterSampleRateCmd, Received)                                                                              \
    ROW(IoInfoReq, Both)                                                                                               \
    ROW(IoInfo, Received)                                                                                              \
    ROW(IoSetInputParams, Received)                                                                                    \
    ROW(IoSetGPOPatch, Received)                                                                                       \
    ROW(IoGPIUpdate, Received)                                                                                         \
    ROW(IoActiveRouter, Sent)                                                                                          \
    ROW(IoActiveAudio, Received)                                                                                       \
    ROW(IoSetOutputGain, Received)                                                                                     \
    ROW(IoInfoCard, Received)                                                                                          \
    ROW(IoPortSetLinkCmd, Received)                                                                                    \
    ROW(IoInfoDevReq, Both)                                                                                            \
    ROW(PortBitmapCmd, Both)                                                                                           \
    ROW(IoOutputMuteCmd, Received)                                                                                     \
    ROW(SetSDIMetaDataCmd, Received)                                                                                   \
    ROW(SetDolbyEModuleSource, Received)                                                                               \
    ROW(IoOutputsOffsetCmd, Received)                                                                                  \
    ROW(IoInfoK2Mod, Received)                                                                                         \
    ROW(IoK2ModPortData, Received)                                                                                     \
    ROW(RouterInfo, Both)                                                                                              \
    ROW(RemoteIoUpdate, Both)                                                                                          \
    ROW(RemoteRouterUpdate, Both)                                                                                      \
    ROW(RouterInfoReq, Both)                                                                                           \
    ROW(RouterMcsUpdate, Sent)                                                                                         \
    ROW(AudioPatchFailedCmd, Sent)                                                                                     \
    ROW(AudioPatchRetryForHidCmd, Both)                                                                                \
    ROW(OstrelPingCmd, Both)                                                                                           \
    ROW(PatchSucessfulCmd, Both)                                                                                       \
    ROW(IoBoxInternalsCmd, Sent)                                                                                       \
    ROW(RequestActiveMcsCmd, Received)                                                                                 \
    ROW(GpiInfoRequest, Sent)                                                                                          \
    ROW(ChainLengthCmd, Received)                                                                                      \
    ROW(DanteConfigChange, Received)                                                                                   \
    ROW(ModIOCardFailure, Received)                                                                                    \
    ROW(RenamePortCmd, Received)                                                                                       \
    ROW(IoSetGPOParams, Received)                                                                                      \
    ROW(IoSampleRateCapabilities, Received)                                                                            \
    ROW(IoSetSampleRateCmd, Both)                                                                                      \
    ROW(IoInfoReqEx, Sent)                                                                                             \
    ROW(ForwardToActiveCmd, Both)                                                                                      \
    ROW(RouterDetectTimeAllowanceCmd, Received)                                                                        \
    ROW(RouterPatchAudio, Both)                                                                                        \
    ROW(AoIPAddressesCmd, Received)                                                                                    \
    ROW(IoSyncSwap, Received)                                                                                          \
    ROW(RemoteCableStateCmd, Sent)                                                                                     \
    ROW(SetSDIMetaDataDisableCmd, Received)                                                                            \
    ROW(SDIMetaDataPresetResponseCmd, Received)                                                                        \
    ROW(DevicesToCheckAndUpdateCmd, Sent)                                                                              \
    ROW(DeviceCheckResultsCmd, Received)                                                                               \
    ROW(SornMasterRouterNotification::Command, Sent)                                                                   \
    ROW(SornMixedHIDError, Sent)

/// Calls visitor(CommandRow) for each of the 52 commands, by number.
template <class Visitor>
void VisitCommands(Visitor&& visitor)
{
#define KLV_VISIT_COMMAND(Class, Way) visitor(CommandRow<Class, Direction::Way>{#Class});
    KLV_COMMANDS(KLV_VISIT_COMMAND)
#undef KLV_VISIT_COMMAND
}

} // namespace Klv
