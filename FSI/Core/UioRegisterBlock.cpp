#include "FSI/Core/UioRegisterBlock.h"

#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem.hpp>

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <limits>
#include <optional>
#include <sstream>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace fsi {

namespace {

namespace fs = boost::filesystem;

/// Bytes that the registers of every block occupy from the base.
constexpr std::uint32_t RegistersLength = 0x40;

/// A file of the kernel here is at most one page long.
constexpr std::size_t LineSize = 4096;

std::optional<std::string> ReadFirstLine(const fs::path& path)
{
    std::ifstream file(path.string());
    char line[LineSize];
    if (!file.getline(line, sizeof line)) return std::nullopt;
    return std::string(line);
}

/// The hexadecimal number in the first line of the file; 0 if there is none or it exceeds 32 bits.
std::uint32_t ReadHex(const fs::path& path)
{
    const std::optional<std::string> line = ReadFirstLine(path);
    if (!line) return 0;
    // Gives 0 where there are no digits, and the largest value for more digits than it can hold.
    const unsigned long long value = std::strtoull(line->c_str(), nullptr, 16);
    return value > std::numeric_limits<std::uint32_t>::max() ? 0 : static_cast<std::uint32_t>(value);
}

std::vector<fs::path> FindDevices(const std::string& name, const fs::path& classRoot)
{
    std::vector<fs::path> found;
    boost::system::error_code error;
    if (!fs::is_directory(classRoot, error)) return found;
    fs::directory_iterator entry(classRoot, error);
    while (!error && entry != fs::directory_iterator()) {
        const std::optional<std::string> line = ReadFirstLine(entry->path() / "name");
        if (line && boost::algorithm::iequals(*line, name)) found.push_back(entry->path());
        entry.increment(error);
    }
    std::sort(found.begin(), found.end());
    return found;
}

} // namespace

UioRegisterBlock::~UioRegisterBlock()
{
    if (mMapping) ::munmap(mMapping, mSize);
    if (mFd != -1) ::close(mFd);
}

UioRegisterBlock::UioRegisterBlock(const std::string& name, int instance, const std::string& classRoot,
                                   const std::string& deviceRoot)
    : UioRegisterBlock()
{
    std::string device;
    const std::vector<fs::path> found = FindDevices(name, classRoot);
    if (instance >= 0 && static_cast<std::size_t>(instance) < found.size()) {
        const fs::path& entry = found[static_cast<std::size_t>(instance)];
        device = (fs::path(deviceRoot) / entry.filename()).string();
        mSize = ReadHex(entry / "maps/map0/size");
        Map(device, ReadHex(entry / "maps/map0/offset"));
    }
    if (!mBase) {
        std::ostringstream text;
        text << "FSI '" << name << "' (device '" << device << "', fd " << mFd << ", size " << mSize << ")";
        throw std::system_error(std::make_error_code(std::errc::no_such_device), text.str());
    }
}

void UioRegisterBlock::Map(const std::string& device, std::uint32_t offset)
{
    mFd = ::open(device.c_str(), O_RDWR | O_SYNC | O_CLOEXEC);
    if (mFd == -1) return;
    void* const address = ::mmap(nullptr, mSize, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_SHARED, mFd, 0);
    if (address == MAP_FAILED) return;
    mMapping = address;

    // The kernel maps whole pages, and the block may begin anywhere in them.
    const std::uint64_t page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    const std::uint64_t mapped = (mSize + page - 1) / page * page;
    if (std::uint64_t{offset} + RegistersLength > mapped) return;
    mBase = static_cast<volatile std::uint8_t*>(address) + offset;
}

void UioRegisterBlock::WriteBurst(std::uint32_t offset, const std::uint32_t* words, std::size_t count)
{
    volatile std::uint32_t* const port = Register(offset);
    for (std::size_t i = 0; i < count; ++i)
        *port = words[i];
}

} // namespace fsi
