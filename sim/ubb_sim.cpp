// ubb-sim: boots the daemon on a virtual UBB.
//
//   ubb-sim [--scenario NAME|FILE] [--out DIR] [--speed X | --real-time]
//           [--end SECONDS] [--daemon PROGRAM] [--quiet] [--list]
//           [--sleep-ledger] [--erot-state FILE]

#include "run/sim_run.hpp"
#include "scenario/scenario_json.hpp"

#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <string>

namespace
{

namespace fs = std::filesystem;

struct Arguments
{
    std::string scenario = "nominal";
    std::string outDir;
    std::optional<double> speed;
    std::optional<double> end;
    std::string daemon;
    bool quiet = false;
    bool list = false;
    bool sleepLedger = false;
    std::string erotState;
};

const char* usage =
    "usage: ubb-sim [--scenario NAME|FILE] [--out DIR] [--speed X | "
    "--real-time]\n"
    "               [--end SECONDS] [--daemon PROGRAM] [--quiet] [--list]\n"
    "               [--sleep-ledger] [--erot-state FILE]\n";

fs::path selfDirectory()
{
    return fs::read_symlink("/proc/self/exe").parent_path();
}

std::optional<Arguments> parse(int argc, char** argv)
{
    Arguments args;
    for (int i = 1; i < argc; ++i)
    {
        std::string flag = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc)
            {
                throw std::invalid_argument(flag + " needs a value");
            }
            return argv[++i];
        };
        if (flag == "--scenario")
            args.scenario = value();
        else if (flag == "--out")
            args.outDir = value();
        else if (flag == "--speed")
            args.speed = std::stod(value());
        else if (flag == "--real-time")
            args.speed = 1.0;
        else if (flag == "--end")
            args.end = std::stod(value());
        else if (flag == "--daemon")
            args.daemon = value();
        else if (flag == "--quiet")
            args.quiet = true;
        else if (flag == "--list")
            args.list = true;
        else if (flag == "--sleep-ledger")
            args.sleepLedger = true;
        else if (flag == "--erot-state")
            args.erotState = value();
        else
            throw std::invalid_argument("unknown option " + flag);
    }
    if (args.speed && !(*args.speed > 0))
    {
        throw std::invalid_argument("--speed must be above 0");
    }
    return args;
}

void listScenarios()
{
    for (const auto& entry : fs::directory_iterator(UBBSIM_SCENARIO_DIR))
    {
        if (entry.path().extension() == ".json")
        {
            auto scenario = ubbsim::loadScenario(entry.path().string(),
                                                 UBBSIM_SCENARIO_DIR);
            std::cout << entry.path().stem().string() << ": "
                      << scenario.description << "\n";
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        auto args = parse(argc, argv);
        if (args->list)
        {
            listScenarios();
            return 0;
        }
        auto scenario =
            ubbsim::loadScenario(args->scenario, UBBSIM_SCENARIO_DIR);
        if (args->speed)
        {
            scenario.speed = *args->speed;
        }
        if (args->end)
        {
            scenario.end = *args->end;
        }
        ubbsim::RunOptions options;
        options.outDir = args->outDir.empty() ? "ubb-sim-out/" + scenario.name
                                              : args->outDir;
        options.daemonProgram =
            args->daemon.empty()
                ? (selfDirectory() / "virtual" / "orvane-virtual").string()
                : args->daemon;
        options.echoTrail = !args->quiet;
        options.sleepLedger = args->sleepLedger;
        options.erotStatePath = args->erotState;
        return ubbsim::runScenario(scenario, options);
    }
    catch (const std::invalid_argument& error)
    {
        std::cerr << "ubb-sim: " << error.what() << "\n" << usage;
        return 2;
    }
    catch (const std::exception& error)
    {
        std::cerr << "ubb-sim: " << error.what() << "\n";
        return 1;
    }
}
