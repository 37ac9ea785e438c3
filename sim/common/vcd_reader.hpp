#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ubbsim
{

// A VCD file read back: the declared signals and their changes in order.
// Times are in the file's own unit (nanoseconds for ubb-sim's waveforms).
struct Vcd
{
    struct Change
    {
        int64_t at;
        std::string value;
    };
    std::map<std::string, int> widths;                  // name -> width
    std::map<std::string, std::vector<Change>> changes; // name -> changes
    std::vector<std::string> problems;                  // what is malformed

    static Vcd parse(const std::string& text);
    // The value that a signal has at a time.
    std::string at(const std::string& name, int64_t time) const;
    // When the signal first changes to `value` from another value (the
    // initial dump is a level, not a change); -1 when it never does.
    int64_t firstChangeTo(const std::string& name,
                          const std::string& value) const;
};

} // namespace ubbsim
