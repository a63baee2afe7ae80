#include "MiscSource/LinkPatch.h"

#include "MiscSource/IoPort.h"

#include <ostream>

std::ostream& operator<<(std::ostream& out, const IoPort& port)
{
    return out << "HID:" << std::uint32_t{port.GetHid()} << '(' << port.GetHid() << "), Style:" << port.GetStyle()
               << '(' << IoStyleText(port.GetStyle()) << "), Idx:" << port.GetIndex() << ' ';
}

std::ostream& operator<<(std::ostream& out, const HidPort& port)
{
    return out << "Hid:Port " << port.hid << ':' << AudioPortText(port.port);
}

std::string Routing::SlotPortText(UINT8GIGEPORT port)
{
    return port < PORT_COUNT ? PortText(port) : PortText(port) + std::to_string(port) + ' ';
}

std::string Routing::SlotText(std::uint32_t slot)
{
    return slot == INVALID_TDM_SLOT ? "INVALID_TDM_SLOT" : std::to_string(slot);
}

std::ostream& Routing::operator<<(std::ostream& out, const GigeAndSlots& link)
{
    out << "GigE:TDM " << SlotPortText(link.port);
    for (const std::uint32_t slot : link.slots)
        out << SlotText(slot) << ' ';
    return out;
}

std::ostream& operator<<(std::ostream& out, const LinkPatch& patch)
{
    return out << "SrcLink " << patch.source << " DstLink " << patch.destination;
}
