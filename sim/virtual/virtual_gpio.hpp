#pragma once

#include "utils/platform/gpio.hpp"
#include "virtual/board_link.hpp"

namespace ubbsim
{

// GPIO lines of the virtual board, found by name like libgpiod finds them,
// with the kernel's errors thrown as std::system_error.
class VirtualGpio : public orvane::platform::Gpio
{
  public:
    explicit VirtualGpio(BoardPort& link) : link(link)
    {}

    std::unique_ptr<orvane::platform::GpioLine> findLine(
        const std::string& name) override;

  private:
    BoardPort& link;
};

} // namespace ubbsim
