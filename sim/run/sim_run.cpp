#include "run/sim_run.hpp"

#include "board/board.hpp"
#include "common/sim_env.hpp"
#include "erot/board_erot.hpp"
#include "neighbours/neighbours.hpp"
#include "run/bus_daemon.hpp"
#include "run/client_calls.hpp"
#include "run/daemon_process.hpp"
#include "run/device_contents.hpp"
#include "run/retimer_archives.hpp"
#include "run/run_erot.hpp"
#include "run/run_report.hpp"
#include "run/sim_root.hpp"
#include "run/smc_flash.hpp"
#include "server/board_server.hpp"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <thread>

namespace ubbsim
{

namespace fs = std::filesystem;

namespace
{

// How often the board applies due actions when nobody is asking it.
constexpr auto tick = std::chrono::milliseconds(2);

// Set by SIGINT or SIGTERM: the run ends early but still cleans up and
// writes its outputs.
volatile std::sig_atomic_t stopRequested = 0;

void onStopSignal(int)
{
    stopRequested = 1;
}

void catchStopSignals()
{
    struct sigaction action
    {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

const char* const outputs[] = {"trail.log",       "trail-second.log",
                               "events.jsonl",    "journal.jsonl",
                               "dbus-state.json", "waveform.vcd",
                               "summary.txt",     "erot.jsonl",
                               "erot-state.json", "erot-signing-key.pem",
                               "clients.jsonl",   "neighbours.jsonl"};

// A scratch directory for the sockets: their paths must stay short.
class ScratchDir
{
  public:
    ScratchDir()
    {
        std::string pattern = "/tmp/ubbsim-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr)
        {
            throw std::runtime_error("cannot make a scratch directory");
        }
        path = pattern;
    }
    ~ScratchDir()
    {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    std::string path;
};

void clearOutputs(const fs::path& out)
{
    fs::create_directories(out);
    for (const char* name : outputs)
    {
        fs::remove(out / name);
    }
    fs::remove_all(out / "root");
}

// clock_gettime, not system_clock::now(): the latter loses the time after
// 2038 in a standard library built with a 32-bit time_t.
int64_t wallNowNs()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

std::vector<DaemonAction> sortedActions(const Scenario& scenario)
{
    auto actions = scenario.daemon;
    std::stable_sort(actions.begin(), actions.end(),
                     [](const auto& a, const auto& b) { return a.at < b.at; });
    return actions;
}

SimTime boardTime(Seconds seconds)
{
    return SimTime(static_cast<int64_t>(seconds * 1e9));
}

// The daemon and, when a scenario starts one, a second instance beside it,
// on the run's clock.
struct Daemons
{
    DaemonProcess& first;
    DaemonProcess& second;
    const SimClock& clock;

    // A daemon that ended in the middle of a board request can't let go of
    // the clock itself.
    void reapHolds()
    {
        for (DaemonProcess* daemon : {&first, &second})
        {
            if (daemon->starts() > 0 && !daemon->running())
            {
                clock.dropHolds(daemon->processId());
            }
        }
    }
};

// `cause` names what reset the SMC, for the trail.
void act(const DaemonAction& action, Board& board, Daemons daemons,
         RunErot& erot, const char* cause = "the scenario")
{
    if (action.kind == DaemonAction::Kind::second)
    {
        daemons.second.start();
        return;
    }
    DaemonProcess& daemon = daemons.first;
    daemon.kill();
    daemons.reapHolds();
    if (action.kind == DaemonAction::Kind::restart)
    {
        board.smcReset();
        erot.endpoint().smcReset();
        daemon.note(std::string("== ubb-sim: SMC reset by ") + cause +
                    "; the SMC boots from flash " +
                    (erot.endpoint().state().activeSide == 0 ? "A" : "B") +
                    " ==");
    }
    if (action.kind != DaemonAction::Kind::kill)
    {
        daemon.start();
    }
}

std::string summaryText(const Scenario& scenario, Board& board,
                        DaemonProcess& daemon, Neighbours& neighbours,
                        const std::vector<RaisedEvent>& events,
                        double wallSeconds)
{
    std::ostringstream out;
    out << "== ubb-sim: scenario " << scenario.name << ", " << scenario.end
        << " s of board time in " << std::fixed << std::setprecision(1)
        << wallSeconds << " s\n";
    out << "board:\n";
    for (const auto& line : board.summary())
    {
        out << "  " << line << "\n";
    }
    out << "events raised: " << countEvents(events) << "\n";
    for (const auto& [id, count] : countById(events))
    {
        out << "  " << std::setw(4) << count << "  " << id << "\n";
    }
    out << "I2C failure records: "
        << std::count_if(
               events.begin(), events.end(),
               [](const auto& event) { return event.call == "i2cLog"; })
        << "\n";
    out << "power timeline:\n";
    for (const auto& event : events)
    {
        bool power = event.id.ends_with("ResourcePoweredOn") ||
                     event.id.ends_with("ResourcePoweredOff") ||
                     event.id == "PowerDownRequest";
        if (power && event.call == "log")
        {
            out << "  " << std::setw(7) << std::setprecision(2) << event.at
                << " s  " << event.text << "\n";
        }
    }
    out << "chassis power state: " << neighbours.chassisPowerState() << "\n";
    BoardStats stats = board.stats();
    out << "daemon: started " << daemon.starts() << " time(s), "
        << daemon.lastExit() << "; " << stats.i2cTransfers << " I2C transfers ("
        << stats.i2cFailures << " failed), " << stats.gpioRequests
        << " GPIO requests\n";
    return out.str();
}

std::string secondDaemonLine(DaemonProcess& second, BoardServer& server)
{
    if (second.starts() == 0)
    {
        return "";
    }
    second.running(); // reaps it when it has ended
    return "second daemon: " + second.lastExit() + "; " +
           std::to_string(server.requestsFrom(second.processId())) +
           " board requests\n";
}

// A line per board second: the board's counters and the daemon's CPU
// time, for measurements of what the daemon costs while it holds.
class StatsRecorder
{
  public:
    explicit StatsRecorder(const std::string& path) : out(path)
    {}

    void sample(SimTime now, Board& board, DaemonProcess& daemon)
    {
        if (now < next)
        {
            return;
        }
        next = now + std::chrono::seconds(1);
        BoardStats counts = board.stats();
        out << std::fixed << std::setprecision(6)
            << "{\"t\": " << std::chrono::duration<double>(now).count()
            << ", \"wall\": "
            << std::chrono::duration<double>(
                   std::chrono::steady_clock::now().time_since_epoch())
                   .count()
            << ", \"i2c\": " << counts.i2cTransfers
            << ", \"gpio\": " << counts.gpioRequests
            << ", \"cpu\": " << daemon.cpuSeconds()
            << ", \"rss\": " << daemon.peakRssKb()
            << ", \"pss\": " << daemon.pssKb()
            << ", \"private\": " << daemon.privateKb() << "}\n";
        out.flush();
    }

  private:
    std::ofstream out;
    SimTime next{0};
};

} // namespace

int runScenario(const Scenario& scenario, const RunOptions& options)
{
    fs::path out = fs::absolute(options.outDir);
    clearOutputs(out);
    ScratchDir scratch;
    BusDaemon bus(scratch.path);
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);

    SimEnvironment env;
    env.time =
        SimClock::startNow(scenario.speed, wallNowNs(),
                           "/ubbsim-clock-" + std::to_string(::getpid()));
    env.socketPath = scratch.path + "/board.sock";
    env.rootDir = (out / "root").string();
    env.eventLog = (out / "events.jsonl").string();
    env.journalLog = (out / "journal.jsonl").string();
    env.shmName = "/ubbsim-" + std::to_string(::getpid());
    if (options.sleepLedger)
    {
        env.sleepLog = (out / "sleeps.txt").string();
    }
    SimClock clock(env.time);
    // Board time starts with the daemon: not while the run sets up the
    // board, its neighbours and the eRoT's signed images.
    auto setup = std::make_unique<SimClock::Hold>(clock);
    auto wallStart = std::chrono::steady_clock::now();

    auto board = makeBoard(scenario, clock);
    BoardServer server(*board, env.socketPath);
    server.start();
    prepareRoot(env.rootDir, scenario);
    RunErot erot(scenario, env.rootDir, out, clock, options.erotStatePath);
    prepareInactiveSide(env.rootDir, scenario, erot.endpoint().state());
    if (scenario.manualRetimer)
    {
        prepareManualRetimerUpdate(env.rootDir, *scenario.manualRetimer,
                                   erot.endpoint().state().activeSide);
    }
    board->loadImages(
        deviceContents(scenario, erot.endpoint().state(), env.rootDir));
    Scenario neighbourhood = scenario;
    erot.fillRmDigests(neighbourhood);
    Neighbours neighbours(neighbourhood, erot.handler());
    neighbours.setRmDigestSource(
        [&board](int oam) -> std::optional<std::array<uint8_t, 32>> {
            auto image = board->rmImage(oam);
            if (!image)
            {
                return std::nullopt;
            }
            return erot::sha256Of(*image);
        });
    neighbours.start();

    auto environment = toEnvironment(env);
    environment.emplace_back("DBUS_SYSTEM_BUS_ADDRESS", bus.address());
    DaemonProcess daemon(options.daemonProgram, environment,
                         (out / "trail.log").string(), options.echoTrail,
                         clock);
    DaemonProcess second(options.daemonProgram, environment,
                         (out / "trail-second.log").string(), false, clock);
    daemon.start();
    setup.reset();

    Daemons daemons{daemon, second, clock};
    auto actions = sortedActions(scenario);
    size_t next = 0;
    ClientCalls clients;
    size_t nextClient = 0;
    bool logNvMounted = scenario.logNvMount <= 0;
    catchStopSignals();
    StatsRecorder stats((out / "stats.jsonl").string());
    while (clock.now() < boardTime(scenario.end) && stopRequested == 0)
    {
        board->advance();
        while (next < actions.size() &&
               clock.now() >= boardTime(actions[next].at))
        {
            act(actions[next++], *board, daemons, erot);
        }
        while (nextClient < scenario.clients.size() &&
               clock.now() >= boardTime(scenario.clients[nextClient].at))
        {
            clients.start(scenario.clients[nextClient++]);
        }
        // A reset that the eRoT accepted restarts the SMC.
        if (erot.endpoint().resetDue())
        {
            act({.kind = DaemonAction::Kind::restart}, *board, daemons, erot,
                "the eRoT's system reset");
        }
        if (!logNvMounted && clock.now() >= boardTime(scenario.logNvMount))
        {
            writeMounts(env.rootDir, true);
            logNvMounted = true;
        }
        daemons.reapHolds();
        stats.sample(clock.now(), *board, daemon);
        std::this_thread::sleep_for(tick);
    }

    clients.finish((out / "clients.jsonl").string());
    std::ofstream(out / "dbus-state.json")
        << readDaemonObjects(bus.address()) << "\n";
    std::string secondLine = secondDaemonLine(second, server);
    daemon.kill();
    second.kill();
    neighbours.stop();
    writeNeighbourCalls(neighbours.calls(), out / "neighbours.jsonl");
    server.stop();
    erot.finish();
    board->writeWaveform((out / "waveform.vcd").string());
    ::shm_unlink(env.shmName.c_str());
    SimClock::removePage(env.time.page);

    auto events = readEvents(env.eventLog);
    double wallSeconds = std::chrono::duration<double>(
                             std::chrono::steady_clock::now() - wallStart)
                             .count();
    std::string summary =
        summaryText(scenario, *board, daemon, neighbours, events, wallSeconds) +
        secondLine + erot.summaryLine();
    std::ofstream(out / "summary.txt") << summary;
    std::cout << "\n" << summary << "outputs in " << out.string() << "\n";
    return erot.stateSaved() ? 0 : 1;
}

} // namespace ubbsim
