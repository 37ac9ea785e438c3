#include "board/waveform.hpp"

#include <algorithm>
#include <fstream>

namespace ubbsim
{

Waveform::Signal Waveform::add(const std::string& name, int width,
                               uint64_t initial)
{
    traces.push_back({name, width, initial, initial, none});
    return static_cast<Signal>(traces.size() - 1);
}

void Waveform::set(Signal signal, SimTime at, uint64_t value)
{
    Trace& trace = traces.at(static_cast<size_t>(signal));
    if (trace.value == value)
    {
        return;
    }
    trace.value = value;
    if (at.count() <= 0)
    {
        trace.initial = value;
        return;
    }
    // Several changes at one time show as the last of them.
    if (trace.lastEdge != none && edges[trace.lastEdge].at == at)
    {
        edges[trace.lastEdge].value = value;
        return;
    }
    trace.lastEdge = edges.size();
    edges.push_back({at, signal, value});
}

uint64_t Waveform::value(Signal signal) const
{
    return traces.at(static_cast<size_t>(signal)).value;
}

// Identifiers are short strings of the printable characters '!' to '~'.
std::string Waveform::code(Signal signal) const
{
    constexpr int first = '!';
    constexpr int range = '~' - '!' + 1;
    std::string id;
    int n = signal;
    do
    {
        id.push_back(static_cast<char>(first + n % range));
        n /= range;
    } while (n > 0);
    return id;
}

std::string Waveform::format(Signal signal, uint64_t value) const
{
    const Trace& trace = traces[static_cast<size_t>(signal)];
    if (trace.width == 1)
    {
        return std::string(value ? "1" : "0") + code(signal);
    }
    std::string bits = "b";
    for (int bit = trace.width - 1; bit >= 0; --bit)
    {
        bits.push_back(((value >> bit) & 1) ? '1' : '0');
    }
    return bits + " " + code(signal);
}

void Waveform::writeVcd(std::ostream& out) const
{
    out << "$version ubb-sim $end\n$timescale 1 ns $end\n"
        << "$scope module ubb $end\n";
    for (size_t i = 0; i < traces.size(); ++i)
    {
        const Trace& trace = traces[i];
        out << "$var wire " << trace.width << " "
            << code(static_cast<Signal>(i)) << " " << trace.name;
        if (trace.width > 1)
        {
            out << " [" << trace.width - 1 << ":0]";
        }
        out << " $end\n";
    }
    out << "$upscope $end\n$enddefinitions $end\n#0\n$dumpvars\n";
    for (size_t i = 0; i < traces.size(); ++i)
    {
        out << format(static_cast<Signal>(i), traces[i].initial) << "\n";
    }
    out << "$end\n";

    // Threads record in lock order, which is time order; sorting stably
    // keeps it so even for edges that were recorded late.
    std::vector<Edge> sorted = edges;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Edge& a, const Edge& b) { return a.at < b.at; });
    int64_t stamp = 0;
    for (const Edge& edge : sorted)
    {
        if (edge.at.count() != stamp)
        {
            stamp = edge.at.count();
            out << "#" << stamp << "\n";
        }
        out << format(edge.signal, edge.value) << "\n";
    }
}

bool Waveform::writeVcd(const std::string& path) const
{
    std::ofstream file(path);
    if (!file)
    {
        return false;
    }
    writeVcd(file);
    return static_cast<bool>(file);
}

} // namespace ubbsim
