#include "common/sim_clock.hpp"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <system_error>

namespace ubbsim
{

namespace
{

// A sleep's last stretch that the machine may overshoot: waking this much
// early and taking the rest at once keeps a sleep from ending late by the
// timer slack and the scheduler's delay, multiplied by the speed.
constexpr std::chrono::nanoseconds wakeMargin = std::chrono::microseconds(100);

// Processes that can hold the clock at once: the daemon, a second instance,
// a restarted one whose predecessor's holds are not yet dropped.
constexpr int holderSlots = 16;

} // namespace

// The clock's state, shared by every process of a run. The mutex is robust,
// so a daemon killed inside it leaves it usable.
struct ClockState
{
    pthread_mutex_t lock;
    int64_t anchorBoard; // board time at anchorMono, in ns
    int64_t anchorMono;
    struct Holder
    {
        int32_t pid;
        int32_t count;
    };
    int32_t held; // holds open, all processes together
    Holder holders[holderSlots];
};

struct ClockPage
{
    ClockState* state = nullptr;
    bool mapped = false;

    ClockPage() = default;
    ClockPage(const ClockPage&) = delete;
    ClockPage& operator=(const ClockPage&) = delete;
    ~ClockPage()
    {
        if (mapped)
        {
            ::munmap(state, sizeof(ClockState));
        }
        else
        {
            pthread_mutex_destroy(&state->lock);
            delete state;
        }
    }
};

namespace
{

void initState(ClockState& state, int64_t monoStart)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&state.lock, &attributes);
    pthread_mutexattr_destroy(&attributes);
    state.anchorBoard = 0;
    state.anchorMono = monoStart;
    state.held = 0;
    for (auto& holder : state.holders)
    {
        holder = {0, 0};
    }
}

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::system_category(), what);
}

ClockState* mapPage(const std::string& name, int flags)
{
    int fd = ::shm_open(name.c_str(), flags | O_RDWR, 0600);
    if (fd < 0)
    {
        fail("clock page " + name);
    }
    struct stat info
    {};
    if (((flags & O_CREAT) != 0 && ::ftruncate(fd, sizeof(ClockState)) != 0) ||
        ::fstat(fd, &info) != 0 ||
        info.st_size < static_cast<off_t>(sizeof(ClockState)))
    {
        int error = errno != 0 ? errno : EINVAL;
        ::close(fd);
        errno = error;
        fail("clock page " + name);
    }
    void* memory = ::mmap(nullptr, sizeof(ClockState), PROT_READ | PROT_WRITE,
                          MAP_SHARED, fd, 0);
    ::close(fd);
    if (memory == MAP_FAILED)
    {
        fail("clock page " + name);
    }
    return static_cast<ClockState*>(memory);
}

class Locked
{
  public:
    explicit Locked(ClockState& state) : state(state)
    {
        if (pthread_mutex_lock(&state.lock) == EOWNERDEAD)
        {
            pthread_mutex_consistent(&state.lock);
        }
    }
    ~Locked()
    {
        pthread_mutex_unlock(&state.lock);
    }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

  private:
    ClockState& state;
};

int64_t boardNs(const ClockState& state, double speed, int64_t mono)
{
    if (state.held > 0)
    {
        return state.anchorBoard;
    }
    return state.anchorBoard +
           static_cast<int64_t>(static_cast<double>(mono - state.anchorMono) *
                                speed);
}

// Board time from here on runs from `board` at the machine's `mono`.
void reanchor(ClockState& state, int64_t board, int64_t mono)
{
    state.anchorBoard = board;
    state.anchorMono = mono;
}

} // namespace

int64_t monotonicNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

SimClock::SimClock(const TimeBase& base) : timeBase(base)
{
    if (!(timeBase.speed > 0))
    {
        timeBase.speed = 1.0;
    }
    page = std::make_shared<ClockPage>();
    if (timeBase.page.empty())
    {
        page->state = new ClockState;
        initState(*page->state, timeBase.monoStartNs);
    }
    else
    {
        page->state = mapPage(timeBase.page, 0);
        page->mapped = true;
    }
}

TimeBase SimClock::startNow(double speed, int64_t wallStartNs,
                            const std::string& name)
{
    TimeBase base{monotonicNs(), speed, wallStartNs, name};
    if (!name.empty())
    {
        ClockState* state = mapPage(name, O_CREAT | O_TRUNC);
        initState(*state, base.monoStartNs);
        ::munmap(state, sizeof(ClockState));
    }
    return base;
}

void SimClock::removePage(const std::string& name)
{
    ::shm_unlink(name.c_str());
}

SimTime SimClock::now() const
{
    Locked lock(*page->state);
    return SimTime(boardNs(*page->state, timeBase.speed, monotonicNs()));
}

std::chrono::system_clock::time_point SimClock::wallAt(SimTime at) const
{
    auto wall = std::chrono::nanoseconds(timeBase.wallStartNs) + at;
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(wall));
}

std::chrono::nanoseconds SimClock::realFor(SimTime duration) const
{
    return std::chrono::nanoseconds(static_cast<int64_t>(
        std::ceil(static_cast<double>(duration.count()) / timeBase.speed)));
}

void SimClock::sleepFor(SimTime duration) const
{
    sleepUntil(now() + duration);
}

void SimClock::sleepUntil(SimTime at) const
{
    // Board time may stand still meanwhile, or jump: look again after each
    // sleep.
    for (SimTime left = at - now(); left.count() > 0; left = at - now())
    {
        auto real = realFor(left) - wakeMargin;
        if (real.count() <= 0)
        {
            advanceTo(at);
            return;
        }
        timespec request{static_cast<time_t>(real.count() / 1'000'000'000),
                         static_cast<long>(real.count() % 1'000'000'000)};
        timespec remaining{};
        while (nanosleep(&request, &remaining) == -1 && errno == EINTR)
        {
            request = remaining;
        }
    }
}

void SimClock::advanceTo(SimTime at) const
{
    ClockState& state = *page->state;
    Locked lock(state);
    int64_t mono = monotonicNs();
    if (at.count() > boardNs(state, timeBase.speed, mono))
    {
        reanchor(state, at.count(), mono);
    }
}

SimClock::Hold::Hold(const SimClock& clock) : clock(clock)
{
    clock.take();
}

void SimClock::holdUntilDropped() const
{
    take();
}

void SimClock::take() const
{
    ClockState& state = *page->state;
    Locked lock(state);
    int64_t mono = monotonicNs();
    if (state.held == 0)
    {
        reanchor(state, boardNs(state, timeBase.speed, mono), mono);
    }
    ++state.held;
    pid_t self = ::getpid();
    ClockState::Holder* free = nullptr;
    for (auto& holder : state.holders)
    {
        if (holder.pid == self)
        {
            ++holder.count;
            return;
        }
        if (holder.count == 0 && free == nullptr)
        {
            free = &holder;
        }
    }
    if (free != nullptr)
    {
        *free = {self, 1};
    }
}

SimClock::Hold::~Hold()
{
    ClockState& state = *clock.page->state;
    Locked lock(state);
    pid_t self = ::getpid();
    for (auto& holder : state.holders)
    {
        if (holder.pid == self && holder.count > 0)
        {
            --holder.count;
            break;
        }
    }
    state.held = std::max(state.held - 1, 0);
    if (state.held == 0)
    {
        state.anchorMono = monotonicNs();
    }
}

void SimClock::dropHolds(pid_t process) const
{
    ClockState& state = *page->state;
    Locked lock(state);
    for (auto& holder : state.holders)
    {
        if (holder.pid == process && holder.count > 0)
        {
            state.held = std::max(state.held - holder.count, 0);
            holder = {0, 0};
            if (state.held == 0)
            {
                state.anchorMono = monotonicNs();
            }
        }
    }
}

} // namespace ubbsim
