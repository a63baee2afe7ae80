#include "Common/KLV/Commands/UpdateCommands.h"

#include "Audit/Audit.h"

#include <array>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <boost/tokenizer.hpp>
#include <optional>

namespace {

constexpr std::uint8_t KindOfUnknown = 12;
constexpr std::uint8_t SideOfNone = 2;
constexpr std::uint32_t NoId = 0xFFFFFFFF;

/// The third number of a dotted address.
std::optional<std::uint32_t> ThirdNumber(const std::string& address)
{
    const boost::char_separator<char> dots(".");
    const boost::tokenizer<boost::char_separator<char>> tokens(address, dots);
    const std::vector<std::string> numbers(tokens.begin(), tokens.end());
    if (numbers.size() != 4) return std::nullopt;
    std::uint32_t number{};
    const std::string& third = numbers[2];
    if (third.find_first_not_of("0123456789") == std::string::npos &&
        boost::conversion::try_lexical_convert(third, number)) {
        return number;
    }
    AUDIT_LOG(Fault, "AtomicUpdate::AddressToDevice Well that went very wrong\r\n");
    return std::nullopt;
}

std::uint8_t KindOf(const std::optional<std::uint32_t>& number, bool selfTest)
{
    switch (number.value_or(0)) {
    case 1:
    case 2:
        return selfTest ? 9 : 2;
    case 3:
    case 4:
        return 3;
    case 5:
    case 6:
        return selfTest ? 10 : 4;
    case 7:
    case 8:
        return 5;
    default:
        return KindOfUnknown;
    }
}

} // namespace

AtomicUpdate::AddressDevice AtomicUpdate::AddressToDevice(const std::string& address, bool selfTest)
{
    const auto number = ThirdNumber(address);
    const std::uint8_t kind = KindOf(number, selfTest);
    if (!selfTest) return {kind, SideOfNone};
    if (kind == 9 || kind == 10) return {kind, 3};
    if (!number) return {kind, SideOfNone};
    return {kind, static_cast<std::uint8_t>(*number % 2 == 0 ? 1 : 0)};
}

void DevicesToCheckAndUpdateCmd::AddDevice(const std::string& address, std::uint8_t kind, std::uint8_t method, Hid hid,
                                           std::uint8_t enabled)
{
    const bool isIo = IsIoHid(hid);
    const auto side = isIo ? SideOfNone : static_cast<std::uint8_t>(hid & 1);
    const std::uint32_t id = isIo ? std::uint32_t{hid} : (hid >> 16) & 0xFF;
    mDevices.emplace_back(address, method, enabled, kind, side, id);
}

void DevicesToCheckAndUpdateCmd::AddDevice(const std::string& address, std::uint8_t method, std::uint8_t enabled,
                                           bool selfTest)
{
    const auto device = AtomicUpdate::AddressToDevice(address, selfTest);
    mDevices.emplace_back(address, method, enabled, device.kind, device.side, NoId);
}

const char* DeviceCheckResultsCmd::GetResultText() const
{
    constexpr std::array<const char*, 5> Texts = {"UPTODATE", "FAILEDTOUPDATE", "REQUIRESREBOOT", "FAILEDTOCHECK",
                                                  "REBOOTED"};
    return mResult < Texts.size() ? Texts[mResult] : "Unknown";
}
