#include "FSI/Core/UioRegisterBlock.h"

namespace fsi {

std::unique_ptr<RegisterBlock> OpenRegisterBlock(const std::string& name, int instance)
{
    return std::make_unique<UioRegisterBlock>(name, instance);
}

} // namespace fsi
