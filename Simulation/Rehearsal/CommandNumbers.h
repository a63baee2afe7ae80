#pragma once

namespace stage {

/// The commands that scenes and tests send to a peer, or wait for at one, by their numbers on the wire.
enum CommandNumber : unsigned int {
    RestartMcsLink = 667,
    SetRouterSampleRate = 674,
    IoInfoReq = 800,
    IoGPIUpdate = 805,
    IoInfoDevReq = 814,
    PortBitmap = 815,
    IoOutputMute = 816,
    RouterInfo = 825,
    RemoteIoUpdate = 826,
    RemoteRouterUpdate = 827,
    RouterInfoReq = 829,
    PatchFailed = 834,
    PatchRetry = 835,
    Ping = 839,
    IoBoxInternals = 844,
    ModIOCardFailure = 871,
    IoSetSampleRate = 875,
    ForwardToActive = 880,
    RouterTimeAllowance = 885,
    PatchAudio = 886,
    RemoteCableState = 893,
    DevicesToCheck = 6000,
    MasterRouterNotification = 7020,
    MixedHidError = 7021
};

} // namespace stage
