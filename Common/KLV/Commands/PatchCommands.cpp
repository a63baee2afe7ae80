#include "Common/KLV/Commands/PatchCommands.h"

#include "MiscSource/GlobalConstants.h"

#include <ostream>

namespace Klv {

void FieldCodec<PortBitmapEntries>::Write(KLVWriteSet& set, const PortBitmapEntries& entries)
{
    set.WriteNative(static_cast<std::uint32_t>(entries.size()));
    for (const auto& [port, entry] : entries) {
        PortBitmapEntry::VisitFields(port, entry, [&](const char*, const auto& field) { WriteField(set, field); });
    }
}

void FieldCodec<PortBitmapEntries>::Read(KLVReadSet& set, PortBitmapEntries& entries)
{
    entries.clear();
    for (std::uint32_t left = set.ReadCount(ENTRY_SIZE); left > 0; --left) {
        std::uint16_t port{};
        PortBitmapEntry entry;
        PortBitmapEntry::VisitFields(port, entry, [&](const char*, auto& field) { ReadField(set, field); });
        if (set.IsBad()) return;
        entries[port] = entry;
    }
}

} // namespace Klv

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
