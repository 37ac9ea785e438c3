#pragma once

#include "erot/scripted_device.hpp"
#include "fakes/fake_platform.hpp"
#include "secure-boot/boot_context.hpp"

#include <semaphore.h>

#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace orvane::test
{

// Thrown by the clock when the halt starts its endless sleep.
struct Halted
{};

// The fake clock, except that the halt's first 10 s sleep ends the test's
// call instead of never returning.
class HaltingClock : public FakeClock
{
  public:
    explicit HaltingClock(RecordingZellib& zellib) : zellib(zellib)
    {}

    void sleepFor(std::chrono::nanoseconds duration) override
    {
        FakeClock::sleepFor(duration);
        if (duration == std::chrono::seconds(10) && halting())
        {
            throw Halted{};
        }
    }

  private:
    bool halting() const
    {
        for (const ZellibCall& call : zellib.calls())
        {
            if (call.messageId == "BootFailure")
            {
                return true;
            }
        }
        return false;
    }

    RecordingZellib& zellib;
};

// Fakes for every seam, a scripted eRoT and a boot context whose semaphore
// a halt must post.
class ErotBootTest : public ::testing::Test
{
  protected:
    ErotBootTest() : clock(fake.zellib)
    {
        sem_init(&semaphore, 0, 0);
        context.criticalSection = &semaphore;
        platform::Platform seams = platform::current();
        seams.clock = &clock;
        previous = platform::install(seams);
    }
    ~ErotBootTest() override
    {
        platform::install(previous);
        sem_destroy(&semaphore);
    }

    // The events raised so far, as "id|arg1|text" without the line prefix.
    std::vector<std::string> events() const
    {
        std::vector<std::string> texts;
        for (const ZellibCall& call :
             fake.zellib.calls(ZellibCall::Kind::nvLog))
        {
            {
                const size_t text = call.message.find("] ");
                texts.push_back(call.messageId + "|" + call.arg1 + "|" +
                                call.message.substr(text + 2));
            }
        }
        return texts;
    }

    bool semaphorePosted()
    {
        return sem_trywait(&semaphore) == 0;
    }

    FakePlatform fake;
    HaltingClock clock;
    erot::test::ScriptedDevice device;
    sem_t semaphore;
    BootContext context;

  private:
    platform::Platform previous;
};

} // namespace orvane::test
