#pragma once

namespace fsi {

/// Root of all devices of the FPGA, whether their registers are mapped here or belong to the kernel's link driver.
class Fsi
{
public:
    virtual ~Fsi() = default;

protected:
    Fsi() = default;
    Fsi(const Fsi&) = default;
    Fsi& operator=(const Fsi&) = default;
};

} // namespace fsi
