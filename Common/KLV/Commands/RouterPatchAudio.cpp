#include "Common/KLV/Commands/RouterPatchAudio.h"

#include "MiscSource/GlobalConstants.h"

#include <ostream>

std::ostream& operator<<(std::ostream& out, const PatchSource& source)
{
    const IoPort& port = source.GetPort();
    if (IsIoHid(port.GetHid())) {
        out << port;
    } else {
        out << port.GetHid() << port.GetIndex();
    }
    if (source.GetLink() != UNKNOWN_GIGE_PORT) out << PortText(source.GetLink());
    out << (source.GetSlots().size() == 1 ? " Slot " : " Slots ");
    for (const std::uint32_t slot : source.GetSlots())
        out << slot << " ";
    return out;
}

std::ostream& operator<<(std::ostream& out, const RouterPatchAudio& patch)
{
    return out << "Patch " << (patch.GetMake() ? "Make" : "Break") << " Src " << patch.GetSource() << " Dest "
               << patch.GetDest() << " Orig " << patch.GetOrig() << " UseMe " << FlagText(patch.GetUseMe());
}
