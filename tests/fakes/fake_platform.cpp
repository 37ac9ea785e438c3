#include "fakes/fake_platform.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace orvane::test
{

namespace
{

class StringPipe : public platform::ShellPipe
{
  public:
    StringPipe(std::string text, int status) :
        text(std::move(text)), status(status)
    {}

    size_t read(char* buffer, size_t length) override
    {
        size_t n = std::min(length, text.size() - position);
        std::memcpy(buffer, text.data() + position, n);
        position += n;
        return n;
    }

    int close() override
    {
        return status;
    }

  private:
    std::string text;
    size_t position = 0;
    int status;
};

// No eRoT behind the link unless a test scripts one.
int absentErot(const uint8_t*, size_t, uint8_t*, size_t, uint32_t, size_t*)
{
    return -EHOSTUNREACH;
}

} // namespace

int FakeShell::system(const std::string& command)
{
    std::lock_guard lock(mutex);
    recorded.push_back(command);
    auto found = statusFor.find(command);
    return found == statusFor.end() ? 0 : found->second;
}

std::unique_ptr<platform::ShellPipe> FakeShell::popen(
    const std::string& command)
{
    int status = system(command);
    return std::make_unique<StringPipe>(output, status);
}

std::vector<std::string> FakeShell::commands() const
{
    std::lock_guard lock(mutex);
    return recorded;
}

TempFileRoot::TempFileRoot()
{
    std::filesystem::path temp = std::filesystem::temp_directory_path();
    std::string pattern =
        ((temp.native().size() > 60 ? "/tmp" : temp) / "orvane-root-XXXXXX")
            .string();
    if (mkdtemp(pattern.data()) == nullptr)
    {
        throw std::runtime_error("cannot make a temporary root");
    }
    base = pattern;
}

TempFileRoot::~TempFileRoot()
{
    std::error_code ignored;
    std::filesystem::remove_all(base, ignored);
}

std::filesystem::path TempFileRoot::resolve(std::string_view absolute)
{
    std::filesystem::path relative(absolute);
    return base / relative.relative_path();
}

platform::DevMemResult FakeDevMem::readWord(uint64_t, uint32_t, uint32_t,
                                            uint32_t& value)
{
    if (result == platform::DevMemResult::ok ||
        result == platform::DevMemResult::munmapFailed)
    {
        value = word;
    }
    return result;
}

void RecordingJournal::print(int priority, const std::string& file, int line,
                             const std::string& function,
                             const std::string& message)
{
    std::lock_guard lock(mutex);
    recorded.push_back({priority, file, line, function, message});
}

std::vector<JournalEntry> RecordingJournal::entries() const
{
    std::lock_guard lock(mutex);
    return recorded;
}

FakePlatform::FakePlatform()
{
    platform::Platform seams;
    seams.i2c = &i2c;
    seams.gpio = &gpio;
    seams.clock = &clock;
    seams.shell = &shell;
    seams.files = &files;
    seams.devMem = &devMem;
    seams.journal = &journal;
    seams.zellib = &zellib;
    seams.retimer = &retimer;
    seams.erot = &absentErot;
    previous = platform::install(seams);
}

FakePlatform::~FakePlatform()
{
    platform::install(previous);
}

} // namespace orvane::test
