#pragma once

#include "erot/scripted_device.hpp"
#include "fakes/console_capture.hpp"
#include "fakes/fake_platform.hpp"
#include "secure-boot/boot_context.hpp"
#include "utils/critical_section.hpp"

#include <semaphore.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace orvane::test
{

// Thrown by the clock when the halt starts its endless sleep.
struct Halted
{};

// The fake clock, except that the 10 s sleep of a halt (after BootFailure)
// ends the test's call instead of never returning.
class HaltingClock : public FakeClock
{
  public:
    explicit HaltingClock(RecordingZellib& zellib) : zellib(zellib)
    {}

    void sleepFor(std::chrono::nanoseconds duration) override
    {
        FakeClock::sleepFor(duration);
        auto calls = zellib.calls();
        if (duration == std::chrono::seconds(10) &&
            std::any_of(calls.begin(), calls.end(), [](const auto& call) {
                return call.messageId == "BootFailure";
            }))
        {
            throw Halted{};
        }
    }

  private:
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
        EnterBootCriticalSection(&semaphore);
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
            texts.push_back(call.messageId + "|" + call.arg1 + "|" +
                            call.message.substr(call.message.find("] ") + 2));
        }
        return texts;
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
