#include "Tests/Unit/OrbModule/Src/DeviceManager/Directory.scenes.h"
#include "Tests/Unit/OrbModule/Src/DeviceManager/DirectoryFixture.h"

namespace {

class DirectoryTest : public testing::TestWithParam<Scene>
{};

} // namespace

TEST_P(DirectoryTest, DoesAsWritten)
{
    using namespace std::chrono;
    const std::string& script = GetParam().script;
    // The timers do not expire unless the scene waits for them.
    const auto delay = [&](const char* wait) -> milliseconds {
        return script.find(wait) == std::string::npos ? hours(1) : milliseconds(100);
    };
    Directory directory({delay("wait cable"), delay("wait router")});
    ExpectTranscript(script, [&](const std::string& event) { return directory.Play(event); });
}
INSTANTIATE_TEST_SUITE_P(, DirectoryTest, testing::ValuesIn(ScenesOf(DirectoryScenes)), NameOfScene);
