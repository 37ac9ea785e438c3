// The daemon's own code on the virtual board's backends. Started by ubb-sim,
// which passes the board's whereabouts in the environment.

#include "common/sim_env.hpp"
#include "main/orvane_main.hpp"
#include "utils/platform/platform.hpp"
#include "virtual/bus_calls.hpp"
#include "virtual/event_log.hpp"
#include "virtual/virtual_gpio.hpp"
#include "virtual/virtual_i2c.hpp"
#include "virtual/virtual_machine.hpp"

#include <unistd.h>

#include <iostream>

int main()
{
    std::string error;
    auto env = ubbsim::readEnvironment(error);
    if (!env)
    {
        std::cerr << "orvane-virtual runs on a board started by ubb-sim: "
                  << error << std::endl;
        return 2;
    }
    // All of these serve the daemon until it is killed.
    static ubbsim::BoardLink link(env->socketPath, env->time);
    static ubbsim::VirtualI2c i2c(link);
    static ubbsim::VirtualGpio gpio(link);
    static ubbsim::VirtualClock clock(env->time, env->sleepLog);
    static ubbsim::VirtualShell shell(env->rootDir, &link, env->time);
    static ubbsim::VirtualFileRoot files(env->rootDir);
    static ubbsim::VirtualDevMem devMem(link);
    static ubbsim::VirtualRetimer retimer(link);
    static ubbsim::JsonLines events(env->eventLog, env->time);
    static ubbsim::JsonLines journalLines(env->journalLog, env->time);
    static ubbsim::JsonJournal journal(journalLines);
    static ubbsim::EventLogZellib zellib(events, "/var/lib/orvane/log-dumps");

    static ubbsim::SimClock runClock(env->time);
    ubbsim::chargeBusCalls(runClock);

    orvane::platform::Platform seams;
    seams.i2c = &i2c;
    seams.gpio = &gpio;
    seams.clock = &clock;
    seams.shell = &shell;
    seams.files = &files;
    seams.devMem = &devMem;
    seams.journal = &journal;
    seams.zellib = &zellib;
    seams.retimer = &retimer;
    // The emulated eRoT serves MCTP on the board's private bus.
    seams.erot = &erot::ErotTransportSendRecv;
    orvane::platform::install(seams);

    // Board time stood still while the machine started this process.
    runClock.dropHolds(::getpid());

    static std::string shmName = env->shmName;
    orvane::OrvaneMain(shmName.c_str());
}
