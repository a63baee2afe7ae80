#pragma once

#include "Common/KLV/Commands/Commands.h"
#include "Tests/Support/MemoryStream.h"

#include <boost/algorithm/string/replace.hpp>

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

constexpr Hid Box = 0x00AB0102;
constexpr Hid Router = 0x00AB8001;
inline const IoPort In(Box, 1, 5);
inline const IoPort Out(0xC0DE0201, 2, 7);

/// The bytes of a key and a value; the length comes between them.
inline std::vector<std::uint8_t> ItemBytes(std::string text)
{
    for (const auto& [name, hex] : {std::pair("Box", "0201AB00"),
                                    {"Router", "0180AB00"},
                                    {"In", "0201AB00 05100000"},
                                    {"Out", "0102DEC0 07200000"}})
        boost::replace_all(text, name, hex);
    std::vector<std::uint8_t> bytes = HexBytes(text);
    bytes.insert(bytes.begin() + 4, {static_cast<std::uint8_t>(bytes.size() - 4), 0, 0, 0});
    return bytes;
}

template <class Class>
Golden Make(const char* name, const Class& command, const char* text)
{
    return {name, Class::ID, ItemBytes(text), std::make_shared<Class>(command),
            [](KLVCommandReadSet& set) { return std::make_shared<Class>(set); }};
}

#define ROW(Class, text, ...) Make(#Class, Class(__VA_ARGS__), text)

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
    bitmap.SetPort(0x0304, {});
    return bitmap;
}

inline DevicesToCheckAndUpdateCmd Devices()
{
    DevicesToCheckAndUpdateCmd devices("1.63.5.0");
    devices.AddDevice("a", 2, 1, Router, 1);
    devices.AddDevice("b", 11, 0, Box, 1);
    devices.AddDevice("1.2.3.4", 6, 5, true);
    return devices;
}

/// Each of the 52 command classes once.
inline std::vector<Golden> AllCommands()
{
    using namespace SampleRates;
    return {
        ROW(RestartMCSLinkCmd, "9B020028 0001AB00", 0x00AB0100),
        ROW(SetRouterSampleRateCmd, "A2020028 03000000 78563412", RATE_88K2, 0x12345678),
        Make("IoInfoReq", IoInfoReq(), "20030028"),
        ROW(IoInfo, "21030028 Box 07 03000000 413142 00000000 00000000 00000000 00000000", Box, 7,
            {"A1B", "", "", "", ""}),
        ROW(IoSetInputParams, "22030028 Box 0403 FEFFFFFF 01 00 FEFF 0200 0380 FF", Box, 0x0304, -2, true, false, -2, 2,
            -32765, 255),
        ROW(IoSetGPOPatch, "24030028 Box 0403 0600 FFFF 08000000 FFFFFF7F 01", Box, 0x0304, 6, -1, 8, 0x7FFFFFFF, true),
        ROW(IoGPIUpdate, "25030028 Box 0900 F6FF 00", Box, 9, -10, false),
        Make("IoActiveRouter", IoActiveRouter(), "26030028"),
        ROW(IoActiveAudio, "27030028 Box 0100", Box, 1),
        ROW(IoSetOutputGain, "28030028 Box 0403 18FCFFFF", Box, 0x0304, -1000),
        ROW(IoInfoCard, "2B030028 Box 03 04000000 43617264 02000000 1000 FFFF 01000000 0700 01020304", Box, 3, "Card",
            {16, -1}, {7}, {1, 2, 3, 4}),
        ROW(IoPortSetLinkCmd, "2C030028 Box 05 06", Box, 5, 6),
        ROW(IoInfoDevReq, "2E030028 Box", Box),
        Make("PortBitmapCmd", Bitmap(),
             "2F030028 Box 00000000 0000 00000000 0000 03000000 0201 FFFFFFFF 00 0302 44332211 02 0403 FFFFFFFF 00"),
        Make("PortBitmapCmd", PortBitmapCmd(), "2F030028 FFFFFFFF FFFFFFFF 0000 FFFFFFFF 0000 00000000"),
        ROW(IoOutputMuteCmd, "30034028 Box 0403 01", Box, 0x0304, true),
        ROW(SetSDIMetaDataCmd, "31030028 Box 0403 09 01000000 78 00000000 01000000 79", Box, 0x0304, 9, "x", "", "y"),
        ROW(SetDolbyEModuleSource, "32030028 In Out", In, Out),
        ROW(IoOutputsOffsetCmd, "35034028 Box 1027", Box, 10000),
        ROW(IoInfoK2Mod, "36030028 Box 40000000 20000000 01000000 61 00000000 02000000 6263", Box, 64, 32, "a", "",
            "bc"),
        ROW(IoK2ModPortData, "37030028 In 02 01000000 70 FDFFFFFF 00 01 04", In, 2, "p", -3, false, true, 4),
        ROW(RouterInfo, "39034028 Router 05 00020000 00020000 00000000", Router, RemoteDeviceType::Hub, 512, 512, 0),
        ROW(RemoteIoUpdate, "3A030028 07 Box 0100000A Router 01000000 02000000 01000000 02000000",
            RemoteDeviceType::AoIP, Box, 0x0A000001, Router, RATE_96K, {RATE_96K, RATE_44K1}),
        ROW(RemoteRouterUpdate, "3B034028 03 Router 0005AB00 01C00000", RemoteDeviceType::Router, Router, 0x00AB0500,
            0xC001),
        Make("RouterInfoReq", RouterInfoReq(), "3D030028"),
        ROW(RouterMcsUpdate, "3F030028 00013F01", 0x013F0100),
        ROW(AudioPatchFailedCmd, "42030028 In Out", In, Out),
        ROW(AudioPatchRetryForHidCmd, "43030028 Box", Box),
        ROW(OstrelPingCmd, "47030028 09000000 4F52424D4F44554C45 00000000 00000000", "ORBMODULE", 0, 0),
        ROW(PatchSucessfulCmd, "49030028 Out", Out),
        ROW(IoBoxInternalsCmd, "4C030028 0F00FFFF 01000000 04000000 31323334", 0xFFFF000F, 1, "1234"),
        Make("RequestActiveMcsCmd", RequestActiveMcsCmd(), "4E030028"),
        Make("GpiInfoRequest", GpiInfoRequest(), "5A030028"),
        ROW(ChainLengthCmd, "5B030028 04030201 08070605 02", 0x01020304, 0x05060708, 2),
        ROW(DanteConfigChange, "66030028 Box 01", Box, true),
        ROW(ModIOCardFailure, "67030028 Box 02000000", Box, 2),
        ROW(RenamePortCmd, "68030028 In 02000000 4D31", In, "M1"),
        ROW(IoSetGPOParams, "69034028 Box 0403 01 00 01 05 EFCDAB89", Box, 0x0304, true, false, true, 5, 0x89ABCDEF),
        ROW(IoSampleRateCapabilities, "6A030028 Box 00000000 01000000 03000000", Box, RATE_48K, {RATE_88K2}),
        ROW(IoSetSampleRateCmd, "6B030028 01 Box 30750000", RATE_96K, Box, 30000),
        ROW(IoInfoReqEx, "6D030028 01000000", 1),
        Make("ForwardToActiveCmd", Wrapped(), "70030028 FFFF 7F000001 0C000000 3F030028 04000000 0001AB00"),
        ROW(RouterDetectTimeAllowanceCmd, "75030028 10270000", 10000),
        ROW(RouterPatchAudio, "76030028 Router 14000000 01 04000000 14000000 15000000 16000000 FF010000 Out 01 In 00",
            PatchSource(Router, 1, {20, 21, 22, 511}), Out, In, true, false),
        ROW(AoIPAddressesCmd, "77030028 Box 02000000 0100000A 0200000A", Box, {0x0A000001, 0x0A000002}),
        ROW(IoSyncSwap, "7B030028 Box", Box),
        ROW(RemoteCableStateCmd, "7D030028 Box 01 00", Box, true, false),
        ROW(SetSDIMetaDataDisableCmd, "B90B0028 Box 0403 05 01", Box, 0x0304, 5, true),
        ROW(SDIMetaDataPresetResponseCmd, "C20B0028 Box 0403 05 02000000 6F6B 06", Box, 0x0304, 5, "ok", 6),
        Make("DevicesToCheckAndUpdateCmd", Devices(),
             "70174028 08000000 312E36332E352E30 03000000 01000000 61 00000000 01 01 02 01 AB000000 01000000 62 "
             "00000000 00 01 0B 02 Box 07000000 312E322E332E34 00000000 06 05 03 00 FFFFFFFF"),
        ROW(DeviceCheckResultsCmd, "71170028 04000000 312E322E 02", "1.2.", 2),
        ROW(SornMasterRouterNotification::Command, "6C1B0028 03", SornMasterRouterNotification::LOST),
        ROW(SornMixedHIDError, "6D1B0028 01", true),
    };
}

#undef ROW

} // namespace golden
