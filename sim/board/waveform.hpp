#pragma once

#include "common/sim_clock.hpp"

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace ubbsim
{

// Every edge of the board's signals with its board time, for a VCD viewer.
class Waveform
{
  public:
    using Signal = int;

    // A wire (width 1) or a vector, with the value it has at time 0.
    Signal add(const std::string& name, int width, uint64_t initial = 0);

    // Records the value if it changed. Changes at time 0 set the initial
    // value, so a board that starts powered shows no edges at 0.
    void set(Signal signal, SimTime at, uint64_t value);
    uint64_t value(Signal signal) const;

    size_t changes() const
    {
        return edges.size();
    }

    void writeVcd(std::ostream& out) const;
    bool writeVcd(const std::string& path) const;

  private:
    struct Trace
    {
        std::string name;
        int width;
        uint64_t initial;
        uint64_t value;
        size_t lastEdge; // index into edges, or none
    };
    struct Edge
    {
        SimTime at;
        Signal signal;
        uint64_t value;
    };

    static constexpr size_t none = static_cast<size_t>(-1);

    std::string code(Signal signal) const;
    std::string format(Signal signal, uint64_t value) const;

    std::vector<Trace> traces;
    std::vector<Edge> edges;
};

} // namespace ubbsim
