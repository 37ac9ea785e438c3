#include "common/sim_env.hpp"

#include <cstdlib>
#include <stdexcept>

namespace ubbsim
{

namespace
{

constexpr const char* socketVar = "UBBSIM_SOCKET";
constexpr const char* rootVar = "UBBSIM_ROOT";
constexpr const char* eventsVar = "UBBSIM_EVENT_LOG";
constexpr const char* journalVar = "UBBSIM_JOURNAL_LOG";
constexpr const char* shmVar = "UBBSIM_SHM_NAME";
constexpr const char* sleepLogVar = "UBBSIM_SLEEP_LOG";
constexpr const char* monoVar = "UBBSIM_MONO_START_NS";
constexpr const char* speedVar = "UBBSIM_SPEED";
constexpr const char* wallVar = "UBBSIM_WALL_START_NS";
constexpr const char* clockVar = "UBBSIM_CLOCK_PAGE";

std::optional<std::string> variable(const char* name, std::string& error)
{
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0')
    {
        error = std::string("environment variable ") + name + " is not set";
        return std::nullopt;
    }
    return std::string(value);
}

} // namespace

std::vector<std::pair<std::string, std::string>> toEnvironment(
    const SimEnvironment& env)
{
    return {
        {socketVar, env.socketPath},
        {rootVar, env.rootDir},
        {eventsVar, env.eventLog},
        {journalVar, env.journalLog},
        {shmVar, env.shmName},
        {sleepLogVar, env.sleepLog},
        {monoVar, std::to_string(env.time.monoStartNs)},
        {speedVar, std::to_string(env.time.speed)},
        {wallVar, std::to_string(env.time.wallStartNs)},
        {clockVar, env.time.page},
    };
}

std::optional<SimEnvironment> readEnvironment(std::string& error)
{
    SimEnvironment env;
    auto socket = variable(socketVar, error);
    auto root = variable(rootVar, error);
    auto events = variable(eventsVar, error);
    auto journal = variable(journalVar, error);
    auto shm = variable(shmVar, error);
    auto mono = variable(monoVar, error);
    auto speed = variable(speedVar, error);
    auto wall = variable(wallVar, error);
    if (!socket || !root || !events || !journal || !shm || !mono || !speed ||
        !wall)
    {
        return std::nullopt;
    }
    try
    {
        env.time.monoStartNs = std::stoll(*mono);
        env.time.speed = std::stod(*speed);
        env.time.wallStartNs = std::stoll(*wall);
        // Without a shared page the daemon keeps board time to itself, as
        // when it is started alone on a bus with no board behind it.
        const char* page = std::getenv(clockVar);
        env.time.page = page == nullptr ? "" : page;
    }
    catch (const std::exception&)
    {
        error = "malformed time base in the environment";
        return std::nullopt;
    }
    env.socketPath = *socket;
    env.rootDir = *root;
    env.eventLog = *events;
    env.journalLog = *journal;
    env.shmName = *shm;
    const char* sleepLog = std::getenv(sleepLogVar);
    env.sleepLog = sleepLog == nullptr ? "" : sleepLog;
    return env;
}

} // namespace ubbsim
