#pragma once

// Commands of I/O control, which the module passes on between the Orb router and the devices.

#include "Common/KLV/Command.h"
#include "MiscSource/GlobalConstants.h"

#include <cstdint>
#include <string>
#include <vector>

/// Parameters of an input of a box.
class IoSetInputParams : public Command<IoSetInputParams, 802>
{
    KLV_COMMAND_FIELDS(IoSetInputParams, (Hid, Hid), (std::uint16_t, Port), (std::int32_t, Param1), (bool, Param2),
                       (bool, Param3), (std::int16_t, Param4), (std::int16_t, Param5), (std::int16_t, Param6),
                       (std::uint8_t, Param7))
};

/// Patches a GPO of a box.
class IoSetGPOPatch : public Command<IoSetGPOPatch, 804>
{
    KLV_COMMAND_FIELDS(IoSetGPOPatch, (Hid, Hid), (std::uint16_t, Port), (std::int16_t, Param1), (std::int16_t, Param2),
                       (std::int32_t, Param3), (std::uint32_t, Param4), (bool, Param5))
};

/// A GPI of a box has changed.
class IoGPIUpdate : public Command<IoGPIUpdate, 805>
{
    KLV_COMMAND_FIELDS(IoGPIUpdate, (Hid, Hid), (std::int16_t, Param1), (std::int16_t, Param2), (bool, Param3))
};

/// A box reports which link its audio follows.
class IoActiveAudio : public Command<IoActiveAudio, 807>
{
    KLV_COMMAND_FIELDS(IoActiveAudio, (Hid, Hid), (std::int16_t, Param1))
};

/// Gain of an output of a box.
class IoSetOutputGain : public Command<IoSetOutputGain, 808>
{
    KLV_COMMAND_FIELDS(IoSetOutputGain, (Hid, Hid), (std::uint16_t, Port), (std::int32_t, Param1))
};

/// Links ports of a box.
class IoPortSetLinkCmd : public Command<IoPortSetLinkCmd, 812>
{
    KLV_COMMAND_FIELDS(IoPortSetLinkCmd, (Hid, Hid), (std::uint8_t, Param1), (std::uint8_t, Param2))
};

/// Mutes an output of a box.
class IoOutputMuteCmd : public Command<IoOutputMuteCmd, 816, 1>
{
    KLV_COMMAND_FIELDS(IoOutputMuteCmd, (Hid, Hid), (std::uint16_t, Port), (bool, Param1))
};

/// Metadata of an SDI port of a box.
class SetSDIMetaDataCmd : public Command<SetSDIMetaDataCmd, 817>
{
    KLV_COMMAND_FIELDS(SetSDIMetaDataCmd, (Hid, Hid), (std::uint16_t, Port), (std::uint8_t, Param1),
                       (std::string, Param2), (std::string, Param3), (std::string, Param4))
};

/// Source of a Dolby E module; the box of the destination is meant.
class SetDolbyEModuleSource : public Command<SetDolbyEModuleSource, 818>
{
    KLV_COMMAND_FIELDS(SetDolbyEModuleSource, (IoPort, Source), (IoPort, Destination))
};

/// Offset of the outputs of a box.
class IoOutputsOffsetCmd : public Command<IoOutputsOffsetCmd, 821, 1>
{
    KLV_COMMAND_FIELDS(IoOutputsOffsetCmd, (Hid, Hid), (std::uint16_t, Param1))
};

/// Data of a port of an audio module device.
class IoK2ModPortData : public Command<IoK2ModPortData, 823>
{
    KLV_COMMAND_FIELDS(IoK2ModPortData, (IoPort, Port), (std::uint8_t, Param1), (std::string, Param2),
                       (std::int32_t, Param3), (bool, Param4), (bool, Param5), (std::uint8_t, Param6))
};

/// The network audio configuration of a box has changed.
class DanteConfigChange : public ForwardableCommand<DanteConfigChange, 870>
{
    KLV_COMMAND_FIELDS(DanteConfigChange, (std::uint32_t, Param1), (bool, Param2))
};

/// A card of a modular box has failed.
class ModIOCardFailure : public ForwardableCommand<ModIOCardFailure, 871>
{
    KLV_COMMAND_FIELDS(ModIOCardFailure, (std::uint32_t, Param1), (std::uint32_t, Param2))
};

/// New name of a port of a box.
class RenamePortCmd : public Command<RenamePortCmd, 872>
{
    KLV_COMMAND_FIELDS(RenamePortCmd, (IoPort, Port), (std::string, Name))
};

/// Parameters of a GPO of a box.
class IoSetGPOParams : public Command<IoSetGPOParams, 873, 1>
{
    KLV_COMMAND_FIELDS(IoSetGPOParams, (Hid, Hid), (std::uint16_t, Port), (bool, Param1), (bool, Param2),
                       (bool, Param3), (std::uint8_t, Param4), (std::uint32_t, Param5))
};

/// Sets the sample rate of a box, whose links go down for that many milliseconds.
class IoSetSampleRateCmd : public Command<IoSetSampleRateCmd, 875>
{
    KLV_COMMAND_FIELDS(IoSetSampleRateCmd, (Klv::ByteField<SampleRates::SystemSampleRate>, SampleRate), (Hid, Hid),
                       (std::uint32_t, LinksDownTime))
};

/// Addresses of an AoIP box.
class AoIPAddressesCmd : public Command<AoIPAddressesCmd, 887>
{
public:
    using AddressList = std::vector<std::uint32_t>;

    KLV_COMMAND_FIELDS(AoIPAddressesCmd, (Hid, Hid), (AddressList, Addresses))
};

/// Makes a box swap its sync.
class IoSyncSwap : public Command<IoSyncSwap, 891>
{
    KLV_COMMAND_FIELDS(IoSyncSwap, (Hid, Hid))
};

/// Disables the metadata of an SDI port of a box.
class SetSDIMetaDataDisableCmd : public Command<SetSDIMetaDataDisableCmd, 3001>
{
    KLV_COMMAND_FIELDS(SetSDIMetaDataDisableCmd, (Hid, Hid), (std::uint16_t, Port), (std::uint8_t, Param1),
                       (bool, Param2))
};

/// A box answers on a metadata preset.
class SDIMetaDataPresetResponseCmd : public Command<SDIMetaDataPresetResponseCmd, 3010>
{
    KLV_COMMAND_FIELDS(SDIMetaDataPresetResponseCmd, (Hid, Hid), (std::uint16_t, Port), (std::uint8_t, Param1),
                       (std::string, Param2), (std::uint8_t, Param3))
};
