#include "Common/KLV/Commands/PortBitmapCmd.h"

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
        std::uint16_t port = 0;
        PortBitmapEntry entry;
        PortBitmapEntry::VisitFields(port, entry, [&](const char*, auto& field) { ReadField(set, field); });
        if (set.IsBad()) return;
        entries[port] = entry;
    }
}

} // namespace Klv
