// Measures the power sequences on the virtual board, side by side with the
// delays that the sequences prescribe:
//   - the time from the daemon's start to standby "On" (the FPGA ready
//     line) and from the host's enable to base power good, each divided by
//     the sum of the main thread's own sleeps on that path;
//   - one turn of the hold loop: CPU time and I2C and GPIO operations.
//
//   power-bench [--scenario NAME] [--speed X]...
// Without --speed it runs at speeds 1 and 10, one after the other.

#include "common/vcd_reader.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using ubbsim::Vcd;

struct Sleep
{
    double at;
    double length;
};

struct Sample
{
    double t = 0;
    double wall = 0;
    double i2c = 0;
    double gpio = 0;
    double cpu = 0;
    long rss = 0; // the daemon's peak resident set so far, kB
    long pss = 0; // its proportional set at the sample, kB
    long own = 0; // its private pages at the sample, kB
};

std::string slurp(const fs::path& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<Sleep> readSleeps(const fs::path& path)
{
    std::vector<Sleep> sleeps;
    std::ifstream in(path);
    Sleep sleep{};
    while (in >> sleep.at >> sleep.length)
    {
        sleeps.push_back(sleep);
    }
    return sleeps;
}

std::vector<Sample> readSamples(const fs::path& path)
{
    std::vector<Sample> samples;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
    {
        auto entry = nlohmann::json::parse(line);
        samples.push_back({entry["t"], entry["wall"], entry["i2c"],
                           entry["gpio"], entry["cpu"], entry.value("rss", 0L),
                           entry.value("pss", 0L), entry.value("private", 0L)});
    }
    return samples;
}

// How much of [from, to) the main thread spent asleep. A sleep under way
// at `from` counts from there: the host's enable comes while the daemon
// sleeps between two looks at it.
double sleptBetween(const std::vector<Sleep>& sleeps, double from, double to)
{
    double total = 0;
    for (const auto& sleep : sleeps)
    {
        total += std::max(0.0, std::min(to, sleep.at + sleep.length) -
                                   std::max(from, sleep.at));
    }
    return total;
}

double seconds(const Vcd& vcd, const std::string& signal,
               const std::string& value)
{
    int64_t at = vcd.firstChangeTo(signal, value);
    return at < 0 ? -1.0 : static_cast<double>(at) / 1e9;
}

// The last sample at or before t and the first at or after it.
const Sample* sampleAt(const std::vector<Sample>& samples, double t,
                       bool before)
{
    const Sample* found = nullptr;
    for (const auto& sample : samples)
    {
        if (before ? sample.t <= t : sample.t >= t)
        {
            found = &sample;
            if (!before)
            {
                break;
            }
        }
    }
    return found;
}

int runSim(const std::string& scenario, const std::string& speed,
           const fs::path& out)
{
    std::string command = std::string(UBB_SIM_PROGRAM) +
                          " --quiet --sleep-ledger --scenario '" + scenario +
                          "' --speed " + speed + " --out '" + out.string() +
                          "' > '" + (out.string() + ".console") + "' 2>&1";
    int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The number that follows `marker` in the trail's first line holding it;
// negative when there is none.
double trailSeconds(const std::string& trail, const std::string& marker)
{
    auto at = trail.find(marker);
    return at == std::string::npos
               ? -1.0
               : std::strtod(trail.c_str() + at + marker.size(), nullptr);
}

// The boot time report's rows of the components, as the daemon printed
// them ("*** The Component - NAME verification took S sec ***").
void printComponentRows(const std::string& trail)
{
    const std::string row = "*** The Component - ";
    for (auto at = trail.find(row); at != std::string::npos;
         at = trail.find(row, at + 1))
    {
        auto end = trail.find('\n', at);
        std::cout << "  "
                  << trail.substr(at + row.size(), end - at - row.size() - 4)
                  << "\n";
    }
}

void ratioLine(const char* what, double elapsed, double prescribed)
{
    std::cout << std::left << std::setw(40) << what << std::right << std::fixed
              << std::setprecision(3) << std::setw(9) << elapsed << " s  "
              << std::setw(9) << prescribed << " s  " << std::setw(7)
              << (prescribed > 0 ? elapsed / prescribed : 0) << "\n";
}

// One run at one speed: its sequence overhead and what a turn of the hold
// loop costs.
int measure(const std::string& scenario, const std::string& speed)
{
    fs::path out = fs::temp_directory_path() /
                   ("power-bench-" + std::to_string(::getpid()));
    if (runSim(scenario, speed, out) != 0)
    {
        std::cerr << "ubb-sim failed; see " << out << ".console\n";
        return 1;
    }
    Vcd vcd = Vcd::parse(slurp(out / "waveform.vcd"));
    auto sleeps = readSleeps(out / "sleeps.txt");
    auto samples = readSamples(out / "stats.jsonl");

    double ready = seconds(vcd, "GPU_BASE_FPGA_READY", "1");
    double enable = seconds(vcd, "GPU_BASE_PWR_EN", "1");
    double good = seconds(vcd, "GPU_BASE_PWR_GD", "1");
    double drop = seconds(vcd, "GPU_BASE_PWR_EN", "0");
    if (ready < 0 || enable < 0 || good < 0)
    {
        std::cerr << "the run didn't reach base power; see " << out << "\n";
        return 1;
    }

    std::cout << "== sequence overhead (scenario " << scenario << ", speed "
              << speed << ")\n";
    std::cout << std::left << std::setw(40) << "path" << std::right
              << std::setw(11) << "elapsed" << std::setw(12) << "prescribed"
              << std::setw(9) << "ratio"
              << "\n";
    ratioLine("start to standby On", ready, sleptBetween(sleeps, 0, ready));
    ratioLine("host enable to base power good", good - enable,
              sleptBetween(sleeps, enable, good));
    // The verified boot runs from the critical section's start, which is
    // the daemon's start, to the driver's return; its prescribed delays
    // are every sleep on that stretch, the component threads' included.
    const std::string trail = slurp(out / "trail.log");
    const double verified =
        trailSeconds(trail, "*** Total Secure Boot Verification took ");
    if (verified > 0)
    {
        ratioLine("start to the end of the verified boot", verified,
                  sleptBetween(sleeps, 0, verified));
    }
    std::cout << "verification per component (board time):\n";
    printComponentRows(trail);
    std::cout << "firmware copy beside base power: "
              << trailSeconds(trail, "*** Copy took ") << " s\n";

    // The hold: from a little after power good to a little before the
    // host lets go (or the end of the run).
    double holdEnd = drop > good ? drop : samples.back().t;
    const Sample* first = sampleAt(samples, good + 3, false);
    const Sample* last = sampleAt(samples, holdEnd - 2, true);
    if (first != nullptr && last != nullptr && last->t > first->t)
    {
        double boardSeconds = last->t - first->t;
        double turns = boardSeconds / 0.1;
        std::cout << "\n== hold loop (" << std::setprecision(1) << boardSeconds
                  << " s of board time, " << turns
                  << " turns of 100 ms; the power monitor runs beside it)\n"
                  << std::setprecision(2) << "I2C transfers per turn:  "
                  << (last->i2c - first->i2c) / turns << "\n"
                  << "GPIO requests per turn:  "
                  << (last->gpio - first->gpio) / turns << "\n"
                  << "daemon CPU per turn:     " << std::setprecision(3)
                  << (last->cpu - first->cpu) * 1000 / turns << " ms\n"
                  << "daemon CPU at real speed: "
                  << std::setprecision(2)
                  // A turn takes 100 ms of real time on the SMC.
                  << 100 * (last->cpu - first->cpu) / turns / 0.1
                  << " % of one core\n";
    }
    long rss = 0;
    long pss = 0;
    long own = 0;
    for (const Sample& sample : samples)
    {
        rss = std::max(rss, sample.rss);
        pss = std::max(pss, sample.pss);
        own = std::max(own, sample.own);
    }
    // Resident pages of shared libraries count in full in the RSS of every
    // process that maps them; the proportional set divides them among the
    // processes and is what the budget is judged on.
    std::cout << "\n== memory (samples once per board second)\n"
              << "daemon peak RSS (VmHWM): " << rss << " kB\n"
              << "daemon peak PSS:         " << pss
              << " kB = " << std::setprecision(1) << std::fixed
              << 100.0 * static_cast<double>(pss) / (8 * 1024)
              << " % of the 8 MB budget\n"
              << "daemon peak private:     " << own << " kB\n";
    fs::remove_all(out);
    fs::remove(out.string() + ".console");
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::string scenario = "nominal";
    std::vector<std::string> speeds;
    for (int i = 1; i + 1 < argc; i += 2)
    {
        std::string flag = argv[i];
        if (flag == "--scenario")
        {
            scenario = argv[i + 1];
        }
        else
        {
            speeds.push_back(argv[i + 1]);
        }
    }
    // Board time charges each operation its own cost, so the ratios should
    // not move with the speed: both are shown.
    if (speeds.empty())
    {
        speeds = {"1", "10"};
    }
    for (size_t i = 0; i < speeds.size(); ++i)
    {
        if (i > 0)
        {
            std::cout << "\n";
        }
        if (measure(scenario, speeds[i]) != 0)
        {
            return 1;
        }
    }
    return 0;
}
