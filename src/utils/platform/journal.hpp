#pragma once

#include <string>

namespace orvane::platform
{

// Direct journal entries with their code location.
class Journal
{
  public:
    virtual ~Journal() = default;

    virtual void print(int priority, const std::string& file, int line,
                       const std::string& function,
                       const std::string& message) = 0;
};

} // namespace orvane::platform
