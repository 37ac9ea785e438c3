// A management client of the virtual daemon's secure image information:
// the machine's busctl against the run's private bus, as a scenario's
// "clients" calls it.

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ubbsim::test
{
namespace
{

namespace fs = std::filesystem;
using nlohmann::json;
using ::testing::HasSubstr;

std::vector<json> jsonLines(const fs::path& path)
{
    std::vector<json> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
    {
        lines.push_back(json::parse(line));
    }
    return lines;
}

struct ClientRun
{
    std::vector<json> calls;  // clients.jsonl
    std::vector<json> events; // events.jsonl
};

// One quiet ubb-sim run; its directory goes when it has been read.
ClientRun runSim(const std::string& scenario)
{
    static int counter = 0;
    const fs::path out = fs::temp_directory_path() /
                         ("ubbsim-image-info-" + std::to_string(::getpid()) +
                          "-" + std::to_string(++counter));
    // Under an emulator the daemon runs several times slower.
    const bool emulated = std::getenv("UBBSIM_EXEC_WRAPPER") != nullptr;
    std::string command = std::string(UBB_SIM_PROGRAM) + " --quiet --speed " +
                          (emulated ? "5" : "20") + " --out '" + out.string() +
                          "' --scenario '" + scenario + "' >/dev/null 2>&1";
    if (emulated)
    {
        command =
            std::string(std::getenv("UBBSIM_EXEC_WRAPPER")) + " " + command;
    }
    const int raw = std::system(command.c_str());
    EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == 0) << command;
    ClientRun run{jsonLines(out / "clients.jsonl"),
                  jsonLines(out / "events.jsonl")};
    if (std::getenv("UBBSIM_KEEP_TEST_RUNS") == nullptr)
    {
        fs::remove_all(out);
    }
    return run;
}

const std::string erotInterface =
    "xyz.openbmc_project.Orvane.SecureImageInfo.EROT";

json client(double at, const std::string& method)
{
    return {{"at", at},
            {"busctl",
             {"call", "xyz.openbmc_project.Orvane",
              "/xyz/openbmc_project/Orvane", erotInterface, method}}};
}

TEST(ImageInfoClient, SeesTheThirteenInterfacesAndCommits)
{
    ClientRun run = runSim("arb-client");
    ASSERT_EQ(run.calls.size(), 4U);
    for (const json& call : run.calls)
    {
        EXPECT_EQ(call["status"], 0) << call.dump();
    }
    const std::string introspection = run.calls[0]["output"];
    for (const char* suffix :
         {"VR", "Retimer", "Retimer_1", "Retimer_2", "UBB_FPGA", "RMC", "IFWI",
          "EROT", "SMC_FPGA", "APCFG", "SMC", "BUNDLE"})
    {
        EXPECT_THAT(introspection,
                    HasSubstr("xyz.openbmc_project.Orvane.SecureImageInfo." +
                              std::string(suffix) + " "))
            << suffix;
    }
    EXPECT_THAT(introspection,
                HasSubstr("xyz.openbmc_project.Orvane.SecureBoot_Status "));
    EXPECT_THAT(introspection, HasSubstr(".ARBCommit "));
    EXPECT_EQ(run.calls[1]["output"], "i 0\n");
    EXPECT_EQ(run.calls[2]["output"], "av 2 i 0 b true\n");
    EXPECT_EQ(run.calls[3]["output"], "i 0\n");
    // The commit completed the retimer's requested SVN revocation.
    std::vector<std::string> revocations;
    for (const json& event : run.events)
    {
        if (event.value("call", "") == "log" &&
            event.value("id", "").find(".Revocation") != std::string::npos)
        {
            revocations.push_back(event["args"][0]);
        }
    }
    EXPECT_EQ(revocations, std::vector<std::string>{"Retimer,SVN,0x00000001"});
}

// The boot halts on the dead link; the bus still answers, and the method
// reports the failure as its result.
TEST(ImageInfoClient, DeadErotLinkIsTheResultNotAFailedCall)
{
    const fs::path scenario =
        fs::temp_directory_path() /
        ("image-info-dead-link-" + std::to_string(::getpid()) + ".json");
    std::ofstream(scenario) << json{
        {"name", "image-info-dead-link"},
        {"erot", {{"faults", {{{"kind", "deadLink"}}}}}},
        {"clients", {client(20, "GetAutoARBCommit")}},
        {"end", 25}}.dump();
    ClientRun run = runSim(scenario.string());
    fs::remove(scenario);
    ASSERT_EQ(run.calls.size(), 1U);
    EXPECT_EQ(run.calls[0]["status"], 0);
    EXPECT_EQ(run.calls[0]["output"], "av 2 i -5 b false\n");
}

} // namespace
} // namespace ubbsim::test
