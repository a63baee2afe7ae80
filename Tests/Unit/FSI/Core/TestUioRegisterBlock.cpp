#include "FSI/Core/UioRegisterBlock.h"

#include <boost/filesystem.hpp>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <system_error>

namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;

/// A tree as the kernel shows it, beside the test program: a mapping asks for the right to execute, and there it has
/// it.
class UioTree : public testing::Test
{
protected:
    UioTree()
    {
        char name[] = "uioXXXXXX";
        mRoot = fs::absolute(::mkdtemp(name));
        fs::create_directories(mRoot / "dev");
    }
    ~UioTree() override { fs::remove_all(mRoot); }

    /// The device has these bytes somewhere, and zeros around them. An empty text leaves a file out.
    void Add(const std::string& uio, const std::string& name, const std::string& size, const std::string& offset,
             const std::string& bytes = "", std::size_t at = 0)
    {
        const fs::path entry = mRoot / "class" / uio;
        fs::create_directories(entry / "maps/map0");
        std::string device(bytes.empty() ? 0 : 8192, '\0');
        device.replace(at, bytes.size(), bytes);
        for (const auto& [file, text] : {std::pair(entry / "name", name),
                                         {entry / "maps/map0/size", size},
                                         {entry / "maps/map0/offset", offset},
                                         {mRoot / "dev" / uio, device}})
            if (!text.empty()) std::ofstream(file.string(), std::ios::binary) << text;
    }
    std::string Read(const std::string& uio, std::size_t at, std::size_t length) const
    {
        std::ifstream file((mRoot / "dev" / uio).string(), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {}).substr(at, length);
    }
    fsi::UioRegisterBlock Open(const std::string& name, int instance = 0) const
    {
        return fsi::UioRegisterBlock(name, instance, (mRoot / "class").string(), (mRoot / "dev").string());
    }
    /// What opening it throws.
    std::string Failure(const std::string& name, int instance = 0) const
    {
        try {
            Open(name, instance);
        } catch (const std::system_error& error) {
            return error.code() == std::errc::no_such_device ? error.what() : "another error";
        }
        return "opened";
    }

    fs::path mRoot;
};

TEST_F(UioTree, InstancesAreCountedInTheOrderOfThePathsAndCaseDoesNotMatter)
{
    // The last offset at which the registers fit: in one page, and in the two that 0x1001 bytes take.
    Add("uio3", "00ab\n", "0x1000\n", "0xFC0\n", "other", 0xFC4);
    Add("uio1", "00AB\n", "0x1001\n", "0x1FC0\n", "first", 0x1FC4);
    Add("uio2", "00Ab\n", "0x1000\n", "0x0\n", "middle", 4);
    Add("uio0", "00ABC\n", "0x1000\n", "0x0\n");
    std::string found;
    for (const int instance : {0, 1, 2})
        found += static_cast<char>(Open("00aB", instance).Read8(4));
    EXPECT_EQ(found, "fmo");
    EXPECT_THAT(Failure("00aB", 3), HasSubstr("FSI '00aB' (device '', fd -1, size 0)"));
    // What is closed leaves nothing mapped and no descriptor.
    std::ifstream maps("/proc/self/maps");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(maps), {}).find(mRoot.string()), std::string::npos);
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd"))
        EXPECT_EQ(fs::read_symlink(entry.path()).string().find(mRoot.string()), std::string::npos);
}

TEST_F(UioTree, TheBlockBeginsAtTheOffsetAndAccessesReachTheDevice)
{
    Add("uio0", "0003\n", "00002000\n", "1040", std::string("\x11\x22\x33\x44\x55\x66\x77\x08", 8), 0x1040);
    fsi::UioRegisterBlock block = Open("0003");
    EXPECT_EQ(block.GetSize(), 0x2000u);
    EXPECT_EQ(::fcntl(block.GetFileDescriptor(), F_GETFL) & (O_ACCMODE | O_SYNC), O_RDWR | O_SYNC);
    EXPECT_EQ(block.Read8(6), 0x77);
    EXPECT_EQ(block.Read32(4), 0x08776655u);
    block.Write32(0x38, 0x01020304);
    const std::uint32_t words[] = {1, 2, 0xA0B0C0D0};
    block.WriteBurst(0x20, words, 3);
    block.WriteBurst(0x28, words, 1);
    EXPECT_EQ(Read("uio0", 0x1040 + 0x38, 4), std::string("\x04\x03\x02\x01", 4));
    EXPECT_EQ(Read("uio0", 0x1040 + 0x20, 12), std::string("\xD0\xC0\xB0\xA0\0\0\0\0\1\0\0\0", 12));
}

TEST_F(UioTree, WhatIsMissingIsNamed)
{
    EXPECT_THAT(Failure("0003"), HasSubstr("FSI '0003' (device '', fd -1, size 0)"));

    Add("uio0", "0003\n", "0xFFFFFFFF\n", "");
    const std::string device = (mRoot / "dev/uio0").string();
    EXPECT_THAT(Failure("0003"), HasSubstr("FSI '0003' (device '" + device + "', fd -1, size 4294967295)"));

    Add("uio1", "0004\n", "", "", "x");
    EXPECT_THAT(Failure("0004"), testing::ContainsRegex("uio1', fd [0-9]+, size 0\\)"));
    EXPECT_EQ(Failure("0004", -1), Failure("0004", 1));

    // An offset that leaves no room for the registers; nonsense instead of a size.
    Add("uio2", "0010\n", "0x1000\n", "0xFC4\n", "x");
    EXPECT_THAT(Failure("0010"), HasSubstr("size 4096)"));
    Add("uio3", "0012\n", "123456789abcdef0123\n", "", "x");
    EXPECT_THAT(Failure("0012"), HasSubstr("size 0)"));
}

} // namespace
