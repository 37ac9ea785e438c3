#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace orvane::platform
{

// The read end of a command started with popen.
class ShellPipe
{
  public:
    virtual ~ShellPipe() = default;

    // Bytes read into buffer; 0 at the end of the output.
    virtual size_t read(char* buffer, size_t length) = 0;
    // The wait status as pclose gives it.
    virtual int close() = 0;
};

class Shell
{
  public:
    virtual ~Shell() = default;

    // The wait status as system() gives it; -1 when no shell could start.
    virtual int system(const std::string& command) = 0;
    // Null when the command could not be started.
    virtual std::unique_ptr<ShellPipe> popen(const std::string& command) = 0;
};

} // namespace orvane::platform
