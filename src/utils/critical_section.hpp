#pragma once

#include <semaphore.h>

namespace orvane
{

// The Boot Critical Section is left once per entry, however many of the
// boot's halts and its end reach the exit: a second post would let two
// waiters in at once. Enter marks `semaphore` as held by this process.
void EnterBootCriticalSection(sem_t* semaphore);

// Posts `semaphore` unless this process left it already since it entered;
// true when it posted. The "Leave" line is logged either way.
bool LeaveBootCriticalSection(sem_t* semaphore);

} // namespace orvane
