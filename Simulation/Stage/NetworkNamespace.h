#pragma once

#include "Simulation/Stage/FileDescriptor.h"

#include <string>

namespace stage {

/// The namespaces of the rig beside the module's own, which is the empty name.
constexpr char UnitNamespace[] = "unit";
constexpr char PrimaryNamespace[] = "pri";
constexpr char SecondaryNamespace[] = "sec";
constexpr char TertiaryNamespace[] = "ter";

/// Opens the named network namespace of the rig.
FileDescriptor OpenNamespace(const std::string& name);

/// While it lives, the calling thread is in another network namespace. A socket that is made meanwhile belongs to
/// that namespace for good, so a scene that runs on one thread can hold sockets of all of them.
class NamespaceScope
{
public:
    /// An empty name changes nothing.
    explicit NamespaceScope(const std::string& name);
    ~NamespaceScope();
    NamespaceScope(const NamespaceScope&) = delete;
    NamespaceScope& operator=(const NamespaceScope&) = delete;

private:
    FileDescriptor mHome;
};

} // namespace stage
