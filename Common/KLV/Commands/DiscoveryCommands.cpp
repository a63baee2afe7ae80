#include "Common/KLV/Commands/DiscoveryCommands.h"

#include <ostream>

std::ostream& operator<<(std::ostream& out, const RemoteIoUpdate& update)
{
    out << "Hid=" << update.GetHid() << "Type=" << ToLinkType(update.GetType()) << AddressText(update.GetAddress())
        << "RouterHid=" << update.GetOwner() << update.GetSampleRate() << "Supported Rates\r\n";
    for (const auto rate : update.GetSampleRates())
        out << rate << "\n";
    return out;
}
