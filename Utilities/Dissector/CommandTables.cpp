#include "Utilities/Dissector/CommandTables.h"

#include "Common/KLV/CommandContainer.h"
#include "Common/KLV/Commands/Commands.h"
#include "Utilities/Dissector/LuaText.h"

#include <array>
#include <cstddef>
#include <memory>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

/// What the type of a number does not say.
struct Meaning
{
    const char* field;
    const char* kind;
    /// Name of a table of texts, or null.
    const char* texts;
};

constexpr std::array<Meaning, 7> Meanings{{
    {"ChainLengthCmd.mAddress", "host_address", nullptr},
    {"RemoteIoUpdate.mAddress", "host_address", nullptr},
    {"RemoteRouterUpdate.mAddress", "host_address", nullptr},
    {"RouterMcsUpdate.mAddress", "host_address", nullptr},
    {"RouterPatchAudio.mSource.mSourceLink", "uint8", "Port"},
    {"DeviceCheckResultsCmd.mResult", "uint8", "CheckResult"},
    {"SornMasterRouterNotification.Command.mNotification", "uint8", "MasterRouterNotification"},
}};

/// Describes fields by their types, the same by which the codecs read and write them.
class Describer
{
public:
    explicit Describer(std::ostream& out) : mOut(out) {}

    template <class Command>
    void WriteCommand(const std::string& className)
    {
        const std::string name = FilterName(className);
        mOut << "model.commands"
             << "[" << Command::ID << "] = {\n    name = " << LuaText(name) << ",\n    fields = {\n";
        const auto blank = MakeBlank<Command>();
        Command::VisitFields(*blank, [&](const char* fieldName, const auto& field) {
            mOut << "        " << Field(name + ".", fieldName, field) << ",\n";
        });
        mOut << "    },\n}\n";
    }

    void CheckMeanings() const
    {
        for (const Meaning& meaning : Meanings) {
            if (mUsedMeanings.count(meaning.field) == 0)
                throw std::logic_error(std::string("there is no field ") + meaning.field);
        }
    }

private:
    /// A name that a display filter may contain.
    static std::string FilterName(std::string name)
    {
        const std::size_t colons = name.find("::");
        if (colons != std::string::npos) name.replace(colons, 2, ".");
        return name;
    }

    /// The command that an empty item gives.
    template <class Command>
    static std::unique_ptr<Command> MakeBlank()
    {
        CommandContainer item;
        {
            KLVCommandWriteSet header(item, Command::VERSION, Command::ID, 0);
        }
        KLVCommandReadSet set(item);
        return std::make_unique<Command>(set);
    }

    template <class Type>
    std::string Field(const std::string& path, const std::string& name, const Type& sample)
    {
        return Named(name, Kind(path + name, name, sample));
    }

    template <class Type>
    std::string Kind(const std::string& path, const std::string& name, const Type& sample)
    {
        if constexpr (std::is_same_v<Type, bool>) {
            return Simple("bool");
        } else if constexpr (std::is_arithmetic_v<Type>) {
            return NumberKind<Type>(path);
        } else if constexpr (std::is_same_v<Type, Hid>) {
            return Simple("hid");
        } else if constexpr (std::is_same_v<Type, IoPort>) {
            return Simple("io_port");
        } else if constexpr (std::is_same_v<Type, std::string>) {
            return Simple("string");
        } else if constexpr (std::is_same_v<Type, Klv::NetworkAddress>) {
            return Simple("network_address");
        } else if constexpr (std::is_same_v<Type, std::shared_ptr<CommandContainer>>) {
            return Simple("command");
        } else if constexpr (std::is_same_v<Type, RemoteDeviceType>) {
            return WithTexts(NumberName<std::underlying_type_t<Type>>(), "RemoteDeviceType");
        } else if constexpr (std::is_same_v<Type, SampleRates::SystemSampleRate>) {
            return WithTexts(NumberName<std::underlying_type_t<Type>>(), "SystemSampleRate");
        } else if constexpr (std::is_same_v<Type, Klv::ByteField<SampleRates::SystemSampleRate>>) {
            return WithTexts(NumberName<std::uint8_t>(), "SystemSampleRate");
        } else {
            return CompoundKind(path, name, sample);
        }
    }

    template <class Element>
    std::string CompoundKind(const std::string& path, const std::string& name, const std::vector<Element>&)
    {
        const Element element{};
        return Simple("list") + ", minimum = " + std::to_string(Klv::GetFieldLength(element)) +
               ", element = " + Named(name, Kind(path, name, element));
    }

    template <class Element, std::size_t Size>
    std::string CompoundKind(const std::string& path, const std::string& name, const std::array<Element, Size>&)
    {
        return Simple("array") + ", size = " + std::to_string(Size) +
               ", element = " + Named(name, Kind(path, name, Element{}));
    }

    std::string CompoundKind(const std::string& path, const std::string& name, const PortBitmapEntries&)
    {
        const PortBitmapEntries::key_type port{};
        const PortBitmapEntries::mapped_type entry;
        std::string fields;
        PortBitmapEntry::VisitFields(port, entry, [&](const char* fieldName, const auto& field) {
            fields += Field(path + ".", fieldName, field) + ", ";
        });
        return Simple("list") + ", minimum = " + std::to_string(Klv::FieldCodec<PortBitmapEntries>::ENTRY_SIZE) +
               ", element = " + Named(name, Simple("record") + ", fields = {" + fields + "}");
    }

    template <class Record>
    std::string CompoundKind(const std::string& path, const std::string&, const Record& record)
    {
        std::string fields;
        Record::VisitFields(record, [&](const char* fieldName, const auto& field) {
            fields += Field(path + ".", fieldName, field) + ", ";
        });
        return Simple("record") + ", fields = {" + fields + "}";
    }

    template <class Number>
    std::string NumberKind(const std::string& path)
    {
        for (const Meaning& meaning : Meanings) {
            if (path != meaning.field) continue;
            mUsedMeanings.insert(path);
            return meaning.texts ? WithTexts(meaning.kind, meaning.texts) : Simple(meaning.kind);
        }
        return Simple(NumberName<Number>());
    }

    template <class Number>
    static std::string NumberName()
    {
        static_assert(Klv::IsNative<Number>);
        return (std::is_signed_v<Number> ? "int" : "uint") + std::to_string(8 * sizeof(Number));
    }

    static std::string Named(const std::string& name, const std::string& kind)
    {
        return "{name = " + LuaText(name) + ", " + kind + "}";
    }
    static std::string Simple(const std::string& kind) { return "kind = " + LuaText(kind); }
    static std::string WithTexts(const std::string& kind, const std::string& texts)
    {
        return Simple(kind) + ", texts = " + LuaText(texts);
    }

    std::ostream& mOut;
    std::set<std::string> mUsedMeanings;
};

} // namespace

void WriteCommandTables(std::ostream& out)
{
    Describer describer(out);
    out << "model.commands = {}\n";
    Klv::VisitCommands(
        [&](const auto& row) { describer.WriteCommand<typename std::decay_t<decltype(row)>::Command>(row.name); });
    describer.CheckMeanings();
}
