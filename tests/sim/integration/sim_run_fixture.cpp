#include "sim_run_fixture.hpp"

#include "common/vcd_reader.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

namespace ubbsim::test
{

namespace fs = std::filesystem;

namespace
{

std::string slurp(const fs::path& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<nlohmann::json> jsonLines(const fs::path& path)
{
    std::vector<nlohmann::json> lines;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line))
    {
        lines.push_back(nlohmann::json::parse(line));
    }
    return lines;
}

// Every run of this test program writes below one directory, removed when
// the program ends.
struct ScratchRoot
{
    ScratchRoot()
    {
        std::string pattern =
            (fs::temp_directory_path() / "ubbsim-test-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
        {
            throw std::runtime_error("cannot make a test directory");
        }
        path = pattern;
    }
    ~ScratchRoot()
    {
        if (std::getenv("UBBSIM_KEEP_TEST_RUNS") == nullptr)
        {
            std::error_code ignored;
            fs::remove_all(path, ignored);
        }
    }
    fs::path path;
};

fs::path scratchRoot()
{
    static ScratchRoot root;
    return root.path;
}

std::string quoted(const std::string& text)
{
    std::string out = "'";
    for (char c : text)
    {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + "'";
}

std::string runCommand(const std::string& command, int& status)
{
    FILE* pipe = ::popen(command.c_str(), "r");
    std::string output;
    std::array<char, 4096> buffer{};
    for (size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
    {
        output.append(buffer.data(), n);
    }
    int raw = ::pclose(pipe);
    status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return output;
}

} // namespace

std::vector<nlohmann::json> SimRun::eventsWithId(const std::string& id) const
{
    std::vector<nlohmann::json> found;
    for (const auto& event : events)
    {
        if (event.value("call", "") == "log" && event.value("id", "") == id)
        {
            found.push_back(event);
        }
    }
    return found;
}

std::string SimRun::powerStatus(const std::string& property) const
{
    return orvaneProperty("Power_Status", property);
}

std::string SimRun::orvaneProperty(const std::string& interface,
                                   const std::string& property) const
{
    auto state = nlohmann::json::parse(dbusState, nullptr, false);
    if (state.is_discarded() || !state.contains("data"))
    {
        return {};
    }
    for (const auto& objects : state["data"])
    {
        auto path = objects.find("/xyz/openbmc_project/Orvane");
        if (path == objects.end())
        {
            continue;
        }
        auto iface = path->find("xyz.openbmc_project.Orvane." + interface);
        if (iface != path->end() && iface->contains(property))
        {
            return (*iface)[property].value("data", "");
        }
    }
    return {};
}

int SimRun::trailCount(const std::string& text) const
{
    int count = 0;
    for (size_t at = trail.find(text); at != std::string::npos;
         at = trail.find(text, at + 1))
    {
        ++count;
    }
    return count;
}

std::string SimRun::sanitizerReport() const
{
    for (const std::string* text : {&console, &trail})
    {
        for (const char* mark : {"Sanitizer", "runtime error:"})
        {
            auto at = text->find(mark);
            if (at != std::string::npos)
            {
                return text->substr(at > 200 ? at - 200 : 0, 1200);
            }
        }
    }
    return {};
}

double SimRun::firstChange(const std::string& signal,
                           const std::string& value) const
{
    int64_t at = Vcd::parse(waveform).firstChangeTo(signal, value);
    return at < 0 ? -1.0 : static_cast<double>(at) / 1e9;
}

SimRun runSim(const std::string& scenario,
              const std::vector<std::string>& extra)
{
    static int counter = 0;
    SimRun run;
    run.outDir = scratchRoot() / ("run-" + std::to_string(++counter));
    std::string command = std::string(UBB_SIM_PROGRAM) + " --quiet --out " +
                          quoted(run.outDir.string()) + " --scenario " +
                          quoted(scenario);
    for (const auto& arg : extra)
    {
        command += " " + quoted(arg);
    }
    run.console = runCommand(command + " 2>&1", run.status);
    run.trail = slurp(run.outDir / "trail.log");
    run.events = jsonLines(run.outDir / "events.jsonl");
    run.journal = jsonLines(run.outDir / "journal.jsonl");
    run.dbusState = slurp(run.outDir / "dbus-state.json");
    run.waveform = slurp(run.outDir / "waveform.vcd");
    run.tools = slurp(run.outDir / "root/var/log/tools.log");
    // Every run, whatever its test checks, must be clean under the
    // sanitizers that the build may carry.
    if (auto report = run.sanitizerReport(); !report.empty())
    {
        ADD_FAILURE() << "sanitizer report in " << run.outDir << ":\n"
                      << report;
    }
    return run;
}

std::string writeScenario(const std::string& name, const nlohmann::json& body)
{
    auto path = scratchRoot() / (name + ".json");
    std::ofstream(path) << body.dump(2);
    return path.string();
}

} // namespace ubbsim::test
