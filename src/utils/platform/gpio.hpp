#pragma once

#include <memory>
#include <string>

namespace orvane::platform
{

enum class GpioDirection
{
    input,
    output,
};

// One line found by name. Errors are thrown as std::system_error carrying
// the errno, as libgpiod does; a busy line throws EBUSY from request().
// Destroying the handle drops any request it still holds.
class GpioLine
{
  public:
    virtual ~GpioLine() = default;

    virtual void request(const std::string& consumer, GpioDirection direction,
                         int flags, int defaultValue) = 0;
    virtual int getValue() = 0;
    virtual void setValue(int value) = 0;
    virtual void release() = 0;
};

class Gpio
{
  public:
    virtual ~Gpio() = default;

    // Null when no chip has a line of that name.
    virtual std::unique_ptr<GpioLine> findLine(const std::string& name) = 0;
};

} // namespace orvane::platform
