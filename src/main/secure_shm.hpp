#pragma once

#include <semaphore.h>

namespace orvane
{

constexpr const char* secureShmName = "SecureShm";
// One POSIX semaphore on the SMC's 32-bit target.
constexpr long secureShmSize = 16;

// Maps the shared memory object and initialises the Boot Critical Section
// semaphore in it (value 1, shared between processes) on every start. Logs
// and ends the process on failure. The mapping is never released.
sem_t* OpenSecureShm(const char* name);

} // namespace orvane
