#include "utils/critical_section.hpp"

#include "logging/log_line.hpp"

#include <mutex>
#include <set>

namespace orvane
{

namespace
{

std::mutex lock;
// Semaphores this process has left since it entered them.
std::set<sem_t*> left;

} // namespace

void EnterBootCriticalSection(sem_t* semaphore)
{
    std::lock_guard<std::mutex> hold(lock);
    left.erase(semaphore);
}

bool LeaveBootCriticalSection(sem_t* semaphore)
{
    bool posted = false;
    if (semaphore != nullptr)
    {
        std::lock_guard<std::mutex> hold(lock);
        if (left.insert(semaphore).second)
        {
            sem_post(semaphore);
            posted = true;
        }
    }
    ConsoleLog(logging::level::INFO) << "*** Leave Boot Critical Section. ***";
    return posted;
}

} // namespace orvane
