#pragma once

#include "board/fault_book.hpp"
#include "board/timeline.hpp"
#include "board/waveform.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ubbsim
{

// The SMC's GPIO lines by name. One request holds a line at a time; reading
// or driving needs the request; an output keeps its level after release.
// Two lines are driven by the board itself, the others by the SMC.
class GpioLines
{
  public:
    GpioLines(Timeline& timeline, Waveform& waveform, const FaultBook& faults);

    bool exists(const std::string& name) const;
    int request(uint64_t owner, const std::string& name, bool output,
                int defaultValue, uint32_t& handle);
    int get(uint32_t handle) const;
    int set(uint32_t handle, int value);
    int release(uint32_t handle);
    void releaseOwner(uint64_t owner);
    // The SoC restarted: nobody holds a line any more.
    void releaseAll();

    // The board's side: its own lines, and the levels of all.
    void drive(const std::string& name, int value);
    int level(const std::string& name) const;
    void onEdge(const std::string& name, std::function<void(int)> action);
    std::vector<std::pair<std::string, int>> levels() const;

    uint64_t requests() const
    {
        return requestCount;
    }
    uint64_t refusals() const
    {
        return busyCount;
    }

  private:
    struct Line
    {
        bool boardDriven = false;
        int value = 0;
        uint32_t holder = 0;
        Waveform::Signal trace = 0;
        std::function<void(int)> onEdge;
    };
    struct Request
    {
        uint64_t owner;
        std::string line;
        bool output;
    };

    void setLevel(Line& line, int value);
    void drop(uint32_t handle);

    Timeline& timeline;
    Waveform& waveform;
    const FaultBook& faults;
    std::map<std::string, Line> lines;
    std::map<uint32_t, Request> held;
    uint32_t nextHandle = 1;
    uint64_t requestCount = 0;
    uint64_t busyCount = 0;
};

} // namespace ubbsim
