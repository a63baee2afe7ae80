#pragma once

#include "Common/KLV/Commands/Commands.h"
#include "Tests/Support/MemoryStream.h"

#include <arpa/inet.h>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace golden {

/// One command with known values, and its whole item as sent: key, length, value.
struct Golden
{
    std::string name;
    CommandID id;
    std::vector<std::uint8_t> bytes;
    std::shared_ptr<DeskCommand> command;
    /// Reads a command of this class from the set.
    std::function<std::shared_ptr<DeskCommand>(KLVCommandReadSet&)> read;
};

template <class Class>
Golden Make(const char* name, const Class& command, const char* hex)
{
    return {name, Class::ID, HexBytes(hex), std::make_shared<Class>(command),
            [](KLVCommandReadSet& set) { return std::make_shared<Class>(set); }};
}

#define GOLDEN(Class, hex, ...) Make(#Class, Class(__VA_ARGS__), hex)

constexpr Hid Box = 0x00AB0102;            // 02 01 AB 00
constexpr Hid Router = 0x00AB8001;         // 01 80 AB 00
inline const IoPort In(Box, 1, 5);         // 02 01 AB 00 | 05 10 00 00
inline const IoPort Out(0xC0DE0201, 2, 7); // 01 02 DE C0 | 07 20 00 00

inline ForwardToActiveCmd Wrapped()
{
    ForwardToActiveCmd wrapper(htonl(0x7F000001));
    wrapper.SetCommand(RouterMcsUpdate(0x00AB0100));
    return wrapper;
}

inline PortBitmapCmd Bitmap()
{
    PortBitmapCmd bitmap(Box, PortBitmapBlock::AllZero());
    bitmap.SetPort(0x0203, {0xFFFFFFFF, 0});
    bitmap.SetPort(0x0102, {0xFFFFFFFF, 0});
    bitmap.SetPort(0x0203, {0x11223344, 2}); // takes the place of the first
    return bitmap;
}

inline DevicesToCheckAndUpdateCmd Devices()
{
    DevicesToCheckAndUpdateCmd devices("1.63.5.0");
    devices.AddDevice("a", 2, 1, Router, 1);
    devices.AddDevice("b", 11, 0, Box, 1);
    return devices;
}

/// Each of the 52 command classes once.
inline std::vector<Golden> AllCommands()
{
    using SampleRates::RATE_44K1;
    using SampleRates::RATE_88K2;
    using SampleRates::RATE_96K;
    return {
        GOLDEN(RestartMCSLinkCmd, "9B020028 04000000 0001AB00", 0x00AB0100),
        GOLDEN(SetRouterSampleRateCmd, "A2020028 08000000 03000000 78563412", RATE_88K2, 0x12345678),
        Make("IoInfoReq", IoInfoReq(), "20030028 00000000"),
        GOLDEN(IoInfo,
               "21030028 1C000000 0201AB00 07 03000000 413142 00000000 00000000 00000000"
               "00000000",
               Box, 7, {"A1B", "", "", "", ""}),
        GOLDEN(IoSetInputParams, "22030028 13000000 0201AB00 0403 FEFFFFFF 01 00 FEFF 0200 0380 FF", Box, 0x0304, -2,
               true, false, -2, 2, -32765, 255),
        GOLDEN(IoSetGPOPatch, "24030028 13000000 0201AB00 0403 0600 FFFF 08000000 FFFFFF7F 01", Box, 0x0304, 6, -1, 8,
               0x7FFFFFFF, true),
        GOLDEN(IoGPIUpdate, "25030028 09000000 0201AB00 0900 F6FF 00", Box, 9, -10, false),
        Make("IoActiveRouter", IoActiveRouter(), "26030028 00000000"),
        GOLDEN(IoActiveAudio, "27030028 06000000 0201AB00 0100", Box, 1),
        GOLDEN(IoSetOutputGain, "28030028 0A000000 0201AB00 0403 18FCFFFF", Box, 0x0304, -1000),
        GOLDEN(IoInfoCard,
               "2B030028 1F000000 0201AB00 03 04000000 43617264 02000000 1000 FFFF 01000000"
               "0700 01020304",
               Box, 3, "Card", {16, -1}, {7}, {1, 2, 3, 4}),
        GOLDEN(IoPortSetLinkCmd, "2C030028 06000000 0201AB00 05 06", Box, 5, 6),
        GOLDEN(IoInfoDevReq, "2E030028 04000000 0201AB00", Box),
        Make("PortBitmapCmd", Bitmap(),
             "2F030028 22000000 0201AB00 00000000 0000 00000000 0000 02000000 0201 FFFFFFFF 00"
             "0302 44332211 02"),
        GOLDEN(IoOutputMuteCmd, "30034028 07000000 0201AB00 0403 01", Box, 0x0304, true),
        GOLDEN(SetSDIMetaDataCmd, "31030028 15000000 0201AB00 0403 09 01000000 78 00000000 01000000 79", Box, 0x0304, 9,
               "x", "", "y"),
        GOLDEN(SetDolbyEModuleSource, "32030028 10000000 0201AB00 05100000 0102DEC0 07200000", In, Out),
        GOLDEN(IoOutputsOffsetCmd, "35034028 06000000 0201AB00 1027", Box, 10000),
        GOLDEN(IoInfoK2Mod,
               "36030028 1B000000 0201AB00 40000000 20000000 01000000 61 00000000 02000000"
               "6263",
               Box, 64, 32, "a", "", "bc"),
        GOLDEN(IoK2ModPortData, "37030028 15000000 0201AB00 05100000 02 01000000 70 FDFFFFFF 00 01 04", In, 2, "p", -3,
               false, true, 4),
        GOLDEN(RouterInfo, "39034028 11000000 0180AB00 05 00020000 00020000 00000000", Router, RemoteDeviceType::Hub,
               512, 512, 0),
        GOLDEN(RemoteIoUpdate,
               "3A030028 1D000000 07 0201AB00 0100000A 0180AB00 01000000 02000000 01000000"
               "02000000",
               RemoteDeviceType::AoIP, Box, 0x0A000001, Router, RATE_96K, {RATE_96K, RATE_44K1}),
        GOLDEN(RemoteRouterUpdate, "3B034028 0D000000 03 0180AB00 0005AB00 01C00000", RemoteDeviceType::Router, Router,
               0x00AB0500, 0xC001),
        Make("RouterInfoReq", RouterInfoReq(), "3D030028 00000000"),
        GOLDEN(RouterMcsUpdate, "3F030028 04000000 00013F01", 0x013F0100),
        GOLDEN(AudioPatchFailedCmd, "42030028 10000000 0201AB00 05100000 0102DEC0 07200000", In, Out),
        GOLDEN(AudioPatchRetryForHidCmd, "43030028 04000000 0201AB00", Box),
        GOLDEN(OstrelPingCmd, "47030028 15000000 09000000 4F52424D4F44554C45 00000000 00000000", "ORBMODULE", 0, 0),
        GOLDEN(PatchSucessfulCmd, "49030028 08000000 0102DEC0 07200000", Out),
        GOLDEN(IoBoxInternalsCmd, "4C030028 10000000 0F00FFFF 01000000 04000000 31323334", 0xFFFF000F, 1, "1234"),
        Make("RequestActiveMcsCmd", RequestActiveMcsCmd(), "4E030028 00000000"),
        Make("GpiInfoRequest", GpiInfoRequest(), "5A030028 00000000"),
        GOLDEN(ChainLengthCmd, "5B030028 09000000 04030201 08070605 02", 0x01020304, 0x05060708, 2),
        GOLDEN(DanteConfigChange, "66030028 05000000 0201AB00 01", Box, true),
        GOLDEN(ModIOCardFailure, "67030028 08000000 0201AB00 02000000", Box, 2),
        GOLDEN(RenamePortCmd, "68030028 0E000000 0201AB00 05100000 02000000 4D31", In, "M1"),
        GOLDEN(IoSetGPOParams, "69034028 0E000000 0201AB00 0403 01 00 01 05 EFCDAB89", Box, 0x0304, true, false, true,
               5, 0x89ABCDEF),
        GOLDEN(IoSampleRateCapabilities, "6A030028 10000000 0201AB00 00000000 01000000 03000000", Box,
               SampleRates::RATE_48K, {RATE_88K2}),
        GOLDEN(IoSetSampleRateCmd, "6B030028 09000000 01 0201AB00 30750000", RATE_96K, Box, 30000),
        GOLDEN(IoInfoReqEx, "6D030028 04000000 01000000", 1),
        Make("ForwardToActiveCmd", Wrapped(), "70030028 16000000 FFFF 7F000001 0C000000 3F030028 04000000 0001AB00"),
        GOLDEN(RouterDetectTimeAllowanceCmd, "75030028 04000000 10270000", 10000),
        GOLDEN(RouterPatchAudio,
               "76030028 2F000000 0180AB00 14000000 01 04000000 14000000 15000000 16000000 FF010000"
               "0102DEC0 07200000 01 0201AB00 05100000 00",
               PatchSource(Router, 1, {20, 21, 22, 511}), Out, In, true, false),
        GOLDEN(AoIPAddressesCmd, "77030028 10000000 0201AB00 02000000 0100000A 0200000A", Box,
               {0x0A000001, 0x0A000002}),
        GOLDEN(IoSyncSwap, "7B030028 04000000 0201AB00", Box),
        GOLDEN(RemoteCableStateCmd, "7D030028 06000000 0201AB00 01 00", Box, true, false),
        GOLDEN(SetSDIMetaDataDisableCmd, "B90B0028 08000000 0201AB00 0403 05 01", Box, 0x0304, 5, true),
        GOLDEN(SDIMetaDataPresetResponseCmd, "C20B0028 0E000000 0201AB00 0403 05 02000000 6F6B 06", Box, 0x0304, 5,
               "ok", 6),
        Make("DevicesToCheckAndUpdateCmd", Devices(),
             "70174028 32000000 08000000 312E36332E352E30 02000000"
             "01000000 61 00000000 01 01 02 01 AB000000"
             "01000000 62 00000000 00 01 0B 02 0201AB00"),
        GOLDEN(DeviceCheckResultsCmd, "71170028 09000000 04000000 312E322E 02", "1.2.", 2),
        GOLDEN(SornMasterRouterNotification::Command, "6C1B0028 01000000 03", SornMasterRouterNotification::LOST),
        GOLDEN(SornMixedHIDError, "6D1B0028 01000000 01", true),
    };
}

#undef GOLDEN

} // namespace golden
