#pragma once

#include "Common/KLV/FieldCodec.h"
#include "MiscSource/GlobalConstants.h"

// Wire formats of the enumerations of the shared model: a device type is one byte, a sample rate a word.

namespace Klv {

template <>
struct FieldCodec<RemoteDeviceType> : EnumCodec<RemoteDeviceType>
{};

template <>
struct FieldCodec<SampleRates::SystemSampleRate> : EnumCodec<SampleRates::SystemSampleRate>
{};

} // namespace Klv
