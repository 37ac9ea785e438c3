#pragma once

#include "fakes/fake_clock.hpp"
#include "fakes/fake_gpio.hpp"
#include "fakes/fake_i2c.hpp"
#include "fakes/recording_zellib.hpp"
#include "utils/platform/platform.hpp"

#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace orvane::test
{

// Records commands; the status of each comes from a rule, else 0.
class FakeShell : public platform::Shell
{
  public:
    int system(const std::string& command) override;
    std::unique_ptr<platform::ShellPipe> popen(
        const std::string& command) override;

    std::vector<std::string> commands() const;

    std::map<std::string, int> statusFor; // by exact command text
    std::string output;                   // what popen reads

  private:
    mutable std::mutex mutex;
    std::vector<std::string> recorded;
};

// Board paths under a fresh temporary directory, removed at the end; its
// path is short enough for a Unix socket inside.
class TempFileRoot : public platform::FileRoot
{
  public:
    TempFileRoot();
    ~TempFileRoot() override;
    TempFileRoot(const TempFileRoot&) = delete;
    TempFileRoot& operator=(const TempFileRoot&) = delete;

    std::filesystem::path resolve(std::string_view absolute) override;
    const std::filesystem::path& root() const
    {
        return base;
    }

  private:
    std::filesystem::path base;
};

class FakeDevMem : public platform::DevMem
{
  public:
    platform::DevMemResult readWord(uint64_t base, uint32_t mapLength,
                                    uint32_t offset, uint32_t& value) override;

    platform::DevMemResult result = platform::DevMemResult::ok;
    uint32_t word = 0;
};

struct JournalEntry
{
    int priority;
    std::string file;
    int line;
    std::string function;
    std::string message;
};

class RecordingJournal : public platform::Journal
{
  public:
    void print(int priority, const std::string& file, int line,
               const std::string& function,
               const std::string& message) override;

    std::vector<JournalEntry> entries() const;

  private:
    mutable std::mutex mutex;
    std::vector<JournalEntry> recorded;
};

// Every retimer already holds its image.
class FakeRetimer : public platform::RetimerLib
{
  public:
    int ensureRetimerDevImage(int, const std::string&) override
    {
        return 0;
    }
};

// Every seam replaced by a fake, installed for the life of the object.
class FakePlatform
{
  public:
    FakePlatform();
    ~FakePlatform();
    FakePlatform(const FakePlatform&) = delete;
    FakePlatform& operator=(const FakePlatform&) = delete;

    FakeI2c i2c;
    FakeGpio gpio;
    FakeClock clock;
    FakeShell shell;
    TempFileRoot files;
    FakeDevMem devMem;
    RecordingJournal journal;
    RecordingZellib zellib;
    FakeRetimer retimer;

  private:
    platform::Platform previous;
};

} // namespace orvane::test
