// One KLV item on its way in, read by the class of its id: reading ends, holds no more than came, and what was read
// without a fault goes out and comes in again as the same bytes.

#include "Common/KLV/Commands/Commands.h"
#include "Tests/Fuzz/Require.h"
#include "Tests/Support/MemoryStream.h"
#include "Tests/Support/QuietLog.h"

namespace {

/// The bytes of the command that these bytes give.
template <class Class>
std::vector<std::uint8_t> ReadAndWrite(const std::vector<std::uint8_t>& item, bool& isBad)
{
    MemoryStream in(item);
    KLVCommandReadSet set(in);
    const Class command(set);
    isBad = set.IsBad();
    Require(isBad || in.position <= item.size());
    set.Skip();
    MemoryStream out;
    command.WriteTo(out);
    return out.bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    QuietLog::Install();
    if (size < 8) return 0;
    std::vector<std::uint8_t> item(data, data + size);
    const CommandID id = LoadLittleEndian<std::uint32_t>(data) & Klv::ID_MASK;
    // A stream hands over whole items only.
    StoreLittleEndian(static_cast<std::uint32_t>(size - 8), item.data() + 4);
    Klv::VisitCommands([&](auto row) {
        using Class = typename decltype(row)::Command;
        if (id != Class::ID) return;
        bool isBad = false;
        const auto once = ReadAndWrite<Class>(item, isBad);
        // The fields of a bad item are those that were read, and defaults; no list outgrows its bytes.
        Require(once.size() <= size + (isBad ? 256 : 0));
        if (isBad) return;
        const auto twice = ReadAndWrite<Class>(once, isBad);
        Require(!isBad && (id == ChainLengthCmd::ID || twice == once));
    });
    return 0;
}
