// The bytes inside a ForwardToActiveCmd: opened in place, whatever length they claim, and read as every command that
// may travel there.

#include "Common/KLV/CommandContainer.h"
#include "Common/KLV/Commands/Commands.h"
#include "Tests/Fuzz/Require.h"
#include "Tests/Support/QuietLog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    QuietLog::Install();
    Klv::VisitCommands([&](auto row) {
        using Class = typename decltype(row)::Command;
        if constexpr (std::is_base_of_v<ForwardableDeskCommand, Class> || std::is_same_v<ForwardToActiveCmd, Class>) {
            CommandContainer container;
            if (size != 0) container.WriteData(data, static_cast<std::uint32_t>(size));
            const auto set = container.GetReadSet();
            Require(set || size == 0);
            if (!set) return;
            CommandContainer again;
            Class(*set).WriteTo(again);
            Require(again.GetLength() <= size + 256);
        }
    });
    return 0;
}
