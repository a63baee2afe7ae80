#include "FSI/Audio/CommandLine/RouteRuns.h"

namespace audio {

namespace {

bool Continues(const RouteRun& run, AudioDmaTransaction source)
{
    if (GetEndpoint(source) != GetEndpoint(run.firstSource)) return false;
    return run.firstSource == 0 ? source == 0 : source == run.lastSource + 1;
}

} // namespace

std::vector<RouteRun> SplitIntoRuns(const std::vector<AudioDmaTransaction>& sources)
{
    std::vector<RouteRun> runs;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        if (runs.empty() || !Continues(runs.back(), sources[i])) {
            runs.push_back({sources[i], sources[i], i, 1});
        } else {
            runs.back().lastSource = sources[i];
            ++runs.back().length;
        }
    }
    return runs;
}

} // namespace audio
