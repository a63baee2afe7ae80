// The bytes inside a ForwardToActiveCmd: opened in place, whatever length they claim, and read as every command that
// may travel there.

#include "Common/KLV/CommandContainer.h"
#include "Common/KLV/Commands/Commands.h"
#include "Tests/Support/QuietLog.h"

#include <cstdlib>

namespace {

template <class Class>
void Read(const std::uint8_t* data, std::size_t size)
{
    CommandContainer container;
    if (size != 0) container.WriteData(data, static_cast<std::uint32_t>(size));
    const auto set = container.GetReadSet();
    if (!set) {
        if (size != 0) std::abort();
        return;
    }
    const Class command(*set);
    CommandContainer again;
    command.WriteTo(again);
    if (again.GetLength() > size + 256) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    QuietLog::Install();
    Read<ForwardToActiveCmd>(data, size);
    Klv::VisitCommands([&](auto row) {
        using Class = typename decltype(row)::Command;
        if constexpr (std::is_base_of_v<ForwardableDeskCommand, Class>) Read<Class>(data, size);
    });
    return 0;
}
