// Replays a seed corpus through a fuzz target in builds without libFuzzer: each argument is a file, or a
// directory whose files are all taken.

#include <boost/filesystem.hpp>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fs = boost::filesystem;

namespace {

void Replay(const fs::path& file)
{
    std::ifstream in(file.string(), std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char** argv)
{
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        if (fs::is_directory(argv[i])) {
            for (const auto& entry : fs::recursive_directory_iterator(argv[i])) {
                if (!fs::is_regular_file(entry.path())) continue;
                Replay(entry.path());
                ++replayed;
            }
        } else if (fs::is_regular_file(argv[i])) {
            Replay(argv[i]);
            ++replayed;
        }
    }
    std::printf("%d inputs replayed\n", replayed);
    return replayed == 0 ? 1 : 0;
}
