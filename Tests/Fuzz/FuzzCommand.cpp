// One KLV item on its way in, read by the class of its id: reading ends, holds no more than came, and what was read
// without a fault goes out and comes in again as the same bytes.

#include "Common/KLV/Commands/Commands.h"
#include "Tests/Support/MemoryStream.h"
#include "Tests/Support/QuietLog.h"

#include <cstdlib>

namespace {

void Check(bool condition)
{
    if (!condition) std::abort();
}

std::vector<std::uint8_t> Written(const DeskCommand& command)
{
    MemoryStream stream;
    command.WriteTo(stream);
    return stream.bytes;
}

/// The bytes of the command that these bytes give.
template <class Class>
std::vector<std::uint8_t> ReadAndWrite(const std::vector<std::uint8_t>& item, bool& isBad)
{
    MemoryStream stream(item);
    KLVCommandReadSet set(stream);
    const Class command(set);
    isBad = set.IsBad();
    Check(isBad || stream.position <= item.size());
    set.Skip();
    return Written(command);
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
        Check(once.size() <= size + 256);
        if (isBad) return;
        Check(once.size() <= size);
        const auto twice = ReadAndWrite<Class>(once, isBad);
        Check(!isBad);
        if (id != ChainLengthCmd::ID) Check(twice == once);
    });
    return 0;
}
