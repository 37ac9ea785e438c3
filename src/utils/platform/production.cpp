#include "utils/platform/production.hpp"

#include "utils/platform/real_zellib.hpp"
#include "utils/platform/platform.hpp"
#include "utils/platform/real_clock.hpp"
#include "utils/platform/real_files.hpp"
#include "utils/platform/real_gpio.hpp"
#include "utils/platform/real_i2c.hpp"
#include "utils/platform/real_journal.hpp"
#include "utils/platform/real_retimer.hpp"
#include "utils/platform/real_shell.hpp"

namespace orvane::platform
{

void installProduction()
{
    // Never freed: the seams serve every thread until the process is killed.
    static auto i2cDev = makeRealI2cDev();
    static auto lines = makeRealGpio();
    static auto realClock = makeRealClock();
    static auto realShell = makeRealShell();
    static auto root = makeRealFileRoot();
    static auto mem = makeRealDevMem();
    static auto realJournal = makeRealJournal();
    static auto retimerLib = makeRealRetimerLib();
    // The clock must be in place before the logging stand-in dates a dump.
    Platform seams;
    seams.clock = realClock.get();
    seams.files = root.get();
    install(seams);
    static auto zellib = loadZellib();

    seams.i2c = i2cDev.get();
    seams.gpio = lines.get();
    seams.shell = realShell.get();
    seams.devMem = mem.get();
    seams.journal = realJournal.get();
    seams.zellib = zellib.get();
    seams.retimer = retimerLib.get();
    seams.erot = &erot::ErotTransportSendRecv;
    install(seams);
}

} // namespace orvane::platform
