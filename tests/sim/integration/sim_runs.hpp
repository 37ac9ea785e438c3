#pragma once

// Runs of ubb-sim for the integration tests, and what a run left behind.

#include "json_lines.hpp"

#include "common/vcd_reader.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace ubbsim::test
{

namespace fs = std::filesystem;
using nlohmann::json;

inline std::string slurp(const fs::path& path)
{
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// Every run of this program writes below one directory, removed at its end.
struct ScratchRoot
{
    ScratchRoot()
    {
        fs::create_directories(path);
    }
    ~ScratchRoot()
    {
        std::error_code ignored;
        if (std::getenv("UBBSIM_KEEP_TEST_RUNS") == nullptr)
        {
            fs::remove_all(path, ignored);
        }
    }
    fs::path path = fs::temp_directory_path() /
                    ("ubbsim-test-" + std::to_string(::getpid()));
};
inline const ScratchRoot scratch;

struct SimRun
{
    int status = -1;
    std::string console; // ubb-sim's own output (summary, errors)
    std::string trail;   // the daemon's console trail
    std::string waveform;
    std::vector<json> events;
    std::vector<json> journal;
    json dbusState;
    fs::path outDir;

    // An event's text without the "[...] " prefix.
    static std::string textOf(const json& event)
    {
        std::string message = event.value("message", "");
        auto cut = message.find("] ");
        return cut == std::string::npos ? message : message.substr(cut + 2);
    }
    // Texts of the event log entries with this id (of any call when `call`
    // is empty), in order.
    std::vector<std::string> texts(const std::string& id,
                                   const std::string& call = "log") const
    {
        std::vector<std::string> out;
        for (const auto& event : events)
        {
            if ((call.empty() || event.value("call", "") == call) &&
                event.value("id", "") == id)
            {
                out.push_back(textOf(event));
            }
        }
        return out;
    }
    // A string property of the daemon's object as busctl read it at the
    // end of the run, or empty when it wasn't published.
    std::string orvaneProperty(const std::string& interface,
                               const std::string& property) const
    {
        const json none = json::object();
        for (const auto& objects : dbusState.is_object()
                                       ? dbusState.value("data", json::array())
                                       : json::array())
        {
            std::string value =
                objects.value("/xyz/openbmc_project/Orvane", none)
                    .value("xyz.openbmc_project.Orvane." + interface, none)
                    .value(property, none)
                    .value("data", "");
            if (!value.empty())
            {
                return value;
            }
        }
        return {};
    }
    // The board time (seconds) of the nth log entry with this id whose text
    // starts with `text`; negative when there is none.
    double at(const std::string& id, const std::string& text, size_t nth) const
    {
        for (const auto& event : events)
        {
            if (event.value("call", "") == "log" &&
                event.value("id", "") == id &&
                textOf(event).starts_with(text) && nth-- == 0)
            {
                return event.value("t", -1.0);
            }
        }
        return -1.0;
    }
    std::string powerStatus(const std::string& property) const
    {
        return orvaneProperty("Power_Status", property);
    }
    int trailCount(const std::string& text) const
    {
        int count = 0;
        for (size_t at = trail.find(text); at != std::string::npos;
             at = trail.find(text, at + 1))
        {
            ++count;
        }
        return count;
    }
    // The board time (seconds) of the first change of a VCD signal to
    // `value`, or a negative number when it never happens.
    double firstChange(const std::string& signal,
                       const std::string& value) const
    {
        int64_t at = Vcd::parse(waveform).firstChangeTo(signal, value);
        return at < 0 ? -1.0 : static_cast<double>(at) / 1e9;
    }
};

// Runs ubb-sim quietly with a scenario name or file into a fresh directory.
inline SimRun runSim(const std::string& scenario,
                     const std::vector<std::string>& extra)
{
    static int counter = 0;
    SimRun run;
    run.outDir = scratch.path / ("run-" + std::to_string(++counter));
    fs::path console = run.outDir.string() + ".console";
    std::string command = std::string(UBB_SIM_PROGRAM) + " --quiet --out '" +
                          run.outDir.string() + "' --scenario '" + scenario +
                          "'";
    for (const auto& arg : extra)
    {
        command += " '" + arg + "'";
    }
    // ubb-sim built for another architecture runs under the same emulator
    // as the daemon it starts.
    if (const char* wrapper = std::getenv("UBBSIM_EXEC_WRAPPER"))
    {
        command = std::string(wrapper) + " " + command;
    }
    int raw =
        std::system((command + " >'" + console.string() + "' 2>&1").c_str());
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    run.console = slurp(console);
    run.trail = slurp(run.outDir / "trail.log");
    run.waveform = slurp(run.outDir / "waveform.vcd");
    run.events = jsonLines(run.outDir / "events.jsonl");
    run.journal = jsonLines(run.outDir / "journal.jsonl");
    run.dbusState =
        json::parse(slurp(run.outDir / "dbus-state.json"), nullptr, false);
    // Every run, whatever its test checks, must be clean under the
    // sanitizers that the build may carry.
    for (const std::string* text : {&run.console, &run.trail})
    {
        for (const char* mark : {"Sanitizer", "runtime error:"})
        {
            if (auto at = text->find(mark); at != std::string::npos)
            {
                ADD_FAILURE() << "sanitizer report in " << run.outDir << ":\n"
                              << text->substr(at > 200 ? at - 200 : 0, 1200);
            }
        }
    }
    return run;
}

inline std::string writeScenario(const std::string& name, const json& body)
{
    auto path = scratch.path / (name + ".json");
    std::ofstream(path) << body.dump(2);
    return path.string();
}

// Runs fast enough for a test, slow enough that a busy machine doesn't
// stretch a board second. A daemon under an emulator runs several times
// slower, and so does its board time.
inline const std::vector<std::string> testSpeed = {
    "--speed", std::getenv("UBBSIM_EXEC_WRAPPER") != nullptr ? "5" : "20"};

inline SimRun run(const std::string& scenario)
{
    SimRun result = runSim(scenario, testSpeed);
    EXPECT_EQ(result.status, 0) << result.console;
    return result;
}

} // namespace ubbsim::test
