#include "utils/platform/real_gpio.hpp"

#include <bitset>
#include <gpiod.hpp>

namespace orvane::platform
{

namespace
{

class RealGpioLine : public GpioLine
{
  public:
    explicit RealGpioLine(gpiod::line line) : line(std::move(line))
    {}

    // The line keeps its chip open; closing the chip with the last handle
    // gives back any request still held.
    ~RealGpioLine() override = default;

    void request(const std::string& consumer, GpioDirection direction,
                 int flags, int defaultValue) override
    {
        int type = direction == GpioDirection::input
                       ? gpiod::line_request::DIRECTION_INPUT
                       : gpiod::line_request::DIRECTION_OUTPUT;
        gpiod::line_request config{
            consumer, type,
            std::bitset<32>(static_cast<unsigned long long>(flags))};
        line.request(config, defaultValue);
    }

    int getValue() override
    {
        return line.get_value();
    }

    void setValue(int value) override
    {
        line.set_value(value);
    }

    void release() override
    {
        line.release();
    }

  private:
    gpiod::line line;
};

class RealGpio : public Gpio
{
  public:
    std::unique_ptr<GpioLine> findLine(const std::string& name) override
    {
        gpiod::line line = gpiod::find_line(name);
        if (!line)
        {
            return nullptr;
        }
        return std::make_unique<RealGpioLine>(std::move(line));
    }
};

} // namespace

std::unique_ptr<Gpio> makeRealGpio()
{
    return std::make_unique<RealGpio>();
}

} // namespace orvane::platform
