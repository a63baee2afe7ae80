#include "FSI/Core/UioRegisterBlock.h"

#include <boost/filesystem.hpp>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <system_error>
#include <vector>

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
        fs::create_directories(mRoot / "class");
    }
    ~UioTree() override { fs::remove_all(mRoot); }

    /// The device has these bytes somewhere, and zeros around them. An empty text leaves a file out.
    void Add(const std::string& uio, const std::string& name, const std::string& size, const std::string& offset,
             const std::string& bytes = "", std::size_t at = 0)
    {
        const std::string map = "class/" + uio + "/maps/map0/";
        const std::string zeros(8192, '\0');
        for (const auto& [file, text] :
             {std::pair("class/" + uio + "/name", name),
              {map + "size", size},
              {map + "offset", offset},
              {"dev/" + uio, bytes.empty() ? "" : std::string(zeros).replace(at, bytes.size(), bytes)}}) {
            if (text.empty()) continue;
            fs::create_directories((mRoot / file).parent_path());
            std::ofstream((mRoot / file).string(), std::ios::binary) << text;
        }
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
            EXPECT_EQ(error.code(), std::errc::no_such_device);
            return error.what();
        }
        return "opened";
    }

    fs::path mRoot;
};

TEST_F(UioTree, InstancesAreCountedInTheOrderOfThePathsAndCaseDoesNotMatter)
{
    Add("uio3", "00ab\n", "0x1000\n", "0x0\n", "other", 4);
    Add("uio1", "00AB\n", "0x1000\n", "0x0\n", "first", 4);
    Add("uio0", "00ABC\n", "0x1000\n", "0x0\n");
    EXPECT_EQ(Open("00aB", 0).Read8(4), 'f');
    EXPECT_EQ(Open("00aB", 1).Read8(4), 'o');
    EXPECT_THAT(Failure("00aB", 2), HasSubstr("FSI '00aB' (device '', fd -1, size 0)"));
}

TEST_F(UioTree, TheBlockBeginsAtTheOffsetAndAccessesReachTheDevice)
{
    Add("uio0", "0003\n", "00002000\n", "1040", std::string("\x11\x22\x33\x44\x55\x66\x77\x08", 8), 0x1040);
    fsi::UioRegisterBlock block = Open("0003");
    EXPECT_EQ(block.GetSize(), 0x2000u);
    EXPECT_NE(block.GetFileDescriptor(), -1);
    EXPECT_EQ(block.Read8(6), 0x77);
    EXPECT_EQ(block.Read32(4), 0x08776655u);
    block.Write32(0x38, 0x01020304);
    const std::vector<std::uint32_t> words = {1, 2, 0xA0B0C0D0};
    block.WriteBurst(0x20, words.data(), words.size());
    EXPECT_EQ(Read("uio0", 0x1040 + 0x38, 4), std::string("\x04\x03\x02\x01", 4));
    EXPECT_EQ(Read("uio0", 0x1040 + 0x20, 8), std::string("\xD0\xC0\xB0\xA0\0\0\0\0", 8));
}

TEST_F(UioTree, WhatIsMissingIsNamed)
{
    EXPECT_THAT(Failure("0003"), HasSubstr("FSI '0003' (device '', fd -1, size 0)"));
    EXPECT_THROW(fsi::UioRegisterBlock("0003", 0, "/nonexistent", "/dev"), std::system_error);

    Add("uio0", "0003\n", "0x1000\n", "");
    const std::string device = (mRoot / "dev/uio0").string();
    EXPECT_THAT(Failure("0003"), HasSubstr("FSI '0003' (device '" + device + "', fd -1, size 4096)"));

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
