#include "Simulation/Stage/NetworkNamespace.h"

#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sched.h>

namespace stage {

FileDescriptor OpenNamespace(const std::string& name)
{
    const std::string path = "/run/netns/" + name;
    return FileDescriptor(Checked(open(path.c_str(), O_RDONLY | O_CLOEXEC), path + " (is this the rig?)"));
}

NamespaceScope::NamespaceScope(const std::string& name)
{
    if (name.empty()) return;
    mHome = FileDescriptor(Checked(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC), "own network namespace"));
    Checked(setns(OpenNamespace(name).Get(), CLONE_NEWNET), "enter network namespace " + name);
}

NamespaceScope::~NamespaceScope()
{
    if (mHome.IsOpen() && setns(mHome.Get(), CLONE_NEWNET) != 0) {
        // A scene that continues in the wrong namespace would report falsehoods.
        std::perror("return to the own network namespace");
        std::abort();
    }
}

} // namespace stage
