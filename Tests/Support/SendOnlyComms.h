#pragma once

#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

/// For what only sends: no stream is ever there.
class SendOnlyComms : public iOrbKLVComms
{
public:
    void Connect(std::uint32_t, UINT8GIGEPORT, std::uint16_t) override {}
    void Disconnect(UINT8GIGEPORT) override {}
    void Disconnect(const StreamName&) override {}
    StreamState GetState(const StreamName&) override { return StreamState::None; }
};
