#include "Utilities/Watch/PageFiles.h"

#include <map>

namespace watch {

namespace {

struct PageFile
{
    std::string_view name;
    std::string_view tag;
    const unsigned char* bytes;
    std::size_t size;
};

#include "Utilities/Watch/PageFiles.inc"

std::string_view TypeOf(std::string_view name)
{
    const std::string_view ending = name.substr(name.rfind('.') + 1);
    if (ending == "html") return "text/html; charset=utf-8";
    if (ending == "css") return "text/css; charset=utf-8";
    if (ending == "js") return "text/javascript; charset=utf-8";
    if (ending == "svg") return "image/svg+xml";
    return "application/octet-stream";
}

} // namespace

const Asset* FindAsset(std::string_view path)
{
    static const auto assets = [] {
        std::map<std::string_view, Asset> map;
        for (const PageFile& file : Files) {
            map[file.name] = {TypeOf(file.name), file.tag, {reinterpret_cast<const char*>(file.bytes), file.size}};
        }
        return map;
    }();
    if (path.empty() || path.front() != '/') return nullptr;
    const auto asset = assets.find(path == "/" ? std::string_view("index.html") : path.substr(1));
    return asset == assets.end() ? nullptr : &asset->second;
}

} // namespace watch
