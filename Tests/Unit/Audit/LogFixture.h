#pragma once

#include "Audit/KorvoAudit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

/// A log whose lines for the tail are kept.
class RecordingAudit : public KorvoAudit
{
public:
    using KorvoAudit::FinishRotation;
    using KorvoAudit::KorvoAudit;
    ~RecordingAudit() override { FinishRotation(); }

    void OnLogLine(const std::string& line) override
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mLines.push_back(line);
    }
    std::vector<std::string> Lines()
    {
        const std::lock_guard<std::mutex> lock(mLock);
        return mLines;
    }

private:
    std::mutex mLock;
    std::vector<std::string> mLines;
};

/// A directory of its own for the log of a test.
class LogTest : public testing::Test
{
protected:
    LogTest() { boost::filesystem::create_directories(mDirectory); }
    ~LogTest() override { boost::filesystem::remove_all(mDirectory); }

    static void Log(KorvoAudit& audit, const std::string& text)
    {
        Console([&] { audit.Write("%s", text.c_str()); });
    }
    std::string Path(const std::string& name = "K2.log") const { return (mDirectory / name).string(); }
    static std::string Read(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static void Fill(const std::string& path, const std::string& content)
    {
        std::ofstream(path, std::ios::binary) << content;
    }
    /// The content of a gzipped generation, unpacked by the real tool; "none" if it is not there.
    std::string Generation(int number) const
    {
        const std::string path = Path() + "." + std::to_string(number) + ".gz";
        if (!boost::filesystem::exists(path)) return "none";
        EXPECT_EQ(std::system(("gzip -dc " + path + " > " + Path("unpacked")).c_str()), 0);
        return Read(Path("unpacked"));
    }
    /// What the action prints on standard output.
    static std::string Console(const std::function<void()>& action)
    {
        std::fflush(stdout);
        testing::internal::CaptureStdout();
        action();
        std::fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }

private:
    const boost::filesystem::path mDirectory =
        boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("orb-log-%%%%-%%%%-%%%%");
};
