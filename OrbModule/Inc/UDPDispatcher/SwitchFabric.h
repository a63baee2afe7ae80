#pragma once

namespace SwitchFabric {

/// The first byte of a fabric message.
enum SwitchFabricMessages : int { NetworkTimeMessage = 20 };

} // namespace SwitchFabric
