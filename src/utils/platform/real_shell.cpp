#include "utils/platform/real_shell.hpp"

#include <cstdio>
#include <cstdlib>

namespace orvane::platform
{

namespace
{

class RealPipe : public ShellPipe
{
  public:
    explicit RealPipe(FILE* stream) : stream(stream)
    {}

    ~RealPipe() override
    {
        if (stream != nullptr)
        {
            ::pclose(stream);
        }
    }

    RealPipe(const RealPipe&) = delete;
    RealPipe& operator=(const RealPipe&) = delete;

    size_t read(char* buffer, size_t length) override
    {
        return stream == nullptr ? 0 : std::fread(buffer, 1, length, stream);
    }

    int close() override
    {
        if (stream == nullptr)
        {
            return -1;
        }
        int status = ::pclose(stream);
        stream = nullptr;
        return status;
    }

  private:
    FILE* stream;
};

class RealShell : public Shell
{
  public:
    int system(const std::string& command) override
    {
        return std::system(command.c_str());
    }

    std::unique_ptr<ShellPipe> popen(const std::string& command) override
    {
        FILE* stream = ::popen(command.c_str(), "r");
        if (stream == nullptr)
        {
            return nullptr;
        }
        return std::make_unique<RealPipe>(stream);
    }
};

} // namespace

std::unique_ptr<Shell> makeRealShell()
{
    return std::make_unique<RealShell>();
}

} // namespace orvane::platform
