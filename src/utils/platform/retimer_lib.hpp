#pragma once

#include <string>

namespace orvane::platform
{

// The closed retimer library.
class RetimerLib
{
  public:
    virtual ~RetimerLib() = default;

    // 0 when the retimer behind the switch position holds the image.
    virtual int ensureRetimerDevImage(int switchValue,
                                      const std::string& imagePath) = 0;
};

} // namespace orvane::platform
