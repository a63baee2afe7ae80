#include "FSI/Audio/CommandLine/RouteRuns.h"
#include "FSI/Audio/CommandLine/SampleRange.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace {

using audio::AudioDmaEndpoint;

TEST(SampleRange, TextsAndTheirSamples)
{
    const AudioDmaEndpoint endpoint(1, 512, AudioDmaEndpoint::Direction::SourceAndSink);
    std::istringstream right("0=0, 511=511, 3-3=3, 20,21,30-33,90=20,21,30,31,32,33,90, 0,1,1,2=0,1,2, 1,2,1=1,2, "
                             "1-3,2-5=1,2,3,4,5, 5-3,7=7, 700-600,7=7, 007=7, 99999999999-99999999998,8=8,");
    for (std::string row; right >> row;) {
        const std::string text = row.substr(0, row.find('='));
        std::string samples;
        for (const audio::AudioDmaTransaction transaction : audio::ParseSampleRange(text, endpoint)) {
            EXPECT_EQ(audio::GetEndpoint(transaction), 1);
            samples += std::to_string(audio::GetSample(transaction)) + ",";
        }
        EXPECT_EQ(text + "=" + samples, row);
    }
    std::istringstream wrong("5-3 5,3 3,600 512 510-512 600,1 , 1, 1,,2 -1 1- 1-2-3 +1 0x1 4294967296 "
                             "18446744073709551616 0-4294967295 0-99999999999999999999999999 "
                             "600-700,7");
    for (std::string text; wrong >> text;)
        EXPECT_TRUE(audio::ParseSampleRange(text, endpoint).empty()) << text;
    for (const char* const text : {"", "1 ,2"})
        EXPECT_TRUE(audio::ParseSampleRange(text, endpoint).empty()) << text;
    EXPECT_TRUE(audio::ParseSampleRange("3-4", AudioDmaEndpoint(1, 4, AudioDmaEndpoint::Direction::SinkOnly)).empty());
}

TEST(RouteRuns, BreakAtEndpointsGapsAndSilence)
{
    std::string runs;
    for (const audio::RouteRun& run :
         audio::SplitIntoRuns({0x605, 0x606, 0x608, 0x3FF, 0x400, 0, 0, 0x201, 0x201, 0x200, 0x7FF})) {
        std::ostringstream text;
        text << std::hex << run.firstSource << "-" << run.lastSource << "@" << run.sinkOffset << "+" << run.length;
        runs += text.str() + " ";
    }
    EXPECT_EQ(runs, "605-606@0+2 608-608@2+1 3ff-3ff@3+1 400-400@4+1 0-0@5+2 201-201@7+1 201-201@8+1 200-200@9+1 "
                    "7ff-7ff@a+1 ");
    EXPECT_TRUE(audio::SplitIntoRuns({}).empty());
}

} // namespace
