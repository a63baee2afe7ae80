#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>
#include <vector>

/// Addresses of an AoIP box.
class AoIPAddressesCmd : public Command<AoIPAddressesCmd, 887>
{
public:
    using AddressList = std::vector<std::uint32_t>;

    KLV_COMMAND_FIELDS(AoIPAddressesCmd, (Hid, Hid), (AddressList, Addresses))
};
