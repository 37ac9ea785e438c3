#pragma once

namespace orvane
{

// What an I2C operation leaves in its failure report.
enum I2C_Event : int
{
    I2C_EVENT_NONE = 0,
    I2C_EVENT_OPEN = 1,
    I2C_EVENT_SLAVE_ADDRESS = 2,
    I2C_EVENT_PEC = 3,
    I2C_EVENT_WRITE = 4,
    I2C_EVENT_READ = 5,
    // No transfer failed: a power-good or enable step of a device did.
    I2C_EVENT_DEVICE_STEP = 6,
};

} // namespace orvane
