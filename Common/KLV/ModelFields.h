#pragma once

#include "Common/KLV/FieldCodec.h"
#include "MiscSource/GlobalConstants.h"

// How the enumerations of the shared model stand on the wire: a device type in one byte, a sample rate in a word.

namespace Klv {

template <>
struct FieldCodec<RemoteDeviceType> : EnumCodec<RemoteDeviceType>
{};

template <>
struct FieldCodec<SampleRates::SystemSampleRate> : EnumCodec<SampleRates::SystemSampleRate>
{};

} // namespace Klv
