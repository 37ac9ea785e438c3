#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace ubbsim
{

// Board time: nanoseconds since the start of the run.
using SimTime = std::chrono::nanoseconds;

// What both processes of a run agree on: board time runs `speed` times as
// fast as the machine's monotonic clock from `monoStartNs` on, except that
// it stands still while someone holds it and jumps by what operations cost
// (see SimClock). Those changes live in the POSIX shared memory object
// `page`, which every process of the run maps; a clock with no page keeps
// them to its own process.
struct TimeBase
{
    int64_t monoStartNs = 0;
    double speed = 1.0;
    int64_t wallStartNs = 0; // the time of day that board time 0 shows
    std::string page;
};

struct ClockPage;

// Board time as every process of a run sees it. Machine time counts at
// `speed` only while nobody holds the clock: the daemon holds it while it
// waits for the board (from sending a request until its reply is back),
// for a D-Bus call or a command, and while it is being started; the board
// and the daemon's backends then charge the operation's own cost by moving
// the clock on. So an operation costs what the run models for it, whatever
// the speed and however long the machine took to carry it. Copies share
// one clock.
class SimClock
{
  public:
    // Maps the base's page, or makes a page for this process when it has
    // none. Throws std::system_error when the page can't be mapped.
    explicit SimClock(const TimeBase& base);

    // A base that starts now. With a page name, the page is made (replacing
    // one of that name) for other processes to map; removePage ends it.
    static TimeBase startNow(double speed, int64_t wallStartNs,
                             const std::string& page = "");
    static void removePage(const std::string& page);

    SimTime now() const;
    std::chrono::system_clock::time_point wallAt(SimTime at) const;
    // The machine time that a board duration takes.
    std::chrono::nanoseconds realFor(SimTime duration) const;
    // Sleeps a board duration. The last stretch, shorter than the machine
    // can be trusted to wake on time, is not slept but taken at once, so a
    // sleep ends at its board time and no later.
    void sleepFor(SimTime duration) const;
    void sleepUntil(SimTime at) const;
    // Moves board time on to `at` at once (never back): the caller spends
    // that long on the board.
    void advanceTo(SimTime at) const;

    // Board time stands still from its making until its end.
    class Hold
    {
      public:
        explicit Hold(const SimClock& clock);
        ~Hold();
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

      private:
        const SimClock& clock;
    };

    // A hold of the calling process that only dropHolds ends: a daemon
    // takes one before its program is loaded and lets go of it once it
    // runs, so that the machine's time to start it doesn't count.
    void holdUntilDropped() const;
    // Lets go of the holds of a process, one that ended while holding
    // included.
    void dropHolds(pid_t process) const;

    const TimeBase& base() const
    {
        return timeBase;
    }

  private:
    void take() const;

    TimeBase timeBase;
    std::shared_ptr<ClockPage> page;
};

int64_t monotonicNs();

} // namespace ubbsim
