#include "run/client_calls.hpp"

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

namespace ubbsim
{

namespace
{

std::string quoted(const std::string& text)
{
    std::string out = "'";
    for (char c : text)
    {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + "'";
}

// busctl finds the run's bus through DBUS_SYSTEM_BUS_ADDRESS.
std::pair<int, std::string> runBusctl(const std::vector<std::string>& args)
{
    std::string command = "busctl --system";
    for (const std::string& arg : args)
    {
        command += " " + quoted(arg);
    }
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr)
    {
        return {-1, "cannot run busctl"};
    }
    std::string output;
    std::array<char, 4096> buffer{};
    for (size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
    {
        output.append(buffer.data(), n);
    }
    int raw = ::pclose(pipe);
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, output};
}

} // namespace

ClientCalls::~ClientCalls()
{
    join();
}

void ClientCalls::start(const ClientCall& call)
{
    size_t slot = 0;
    {
        std::lock_guard lock(mutex);
        slot = results.size();
        results.push_back({call, -1, ""});
    }
    // A call waits for the one before it, as one client would.
    last = std::thread(
        [this, slot, args = call.busctl, previous = std::move(last)]() mutable {
            if (previous.joinable())
            {
                previous.join();
            }
            auto [status, output] = runBusctl(args);
            std::lock_guard lock(mutex);
            results[slot].status = status;
            results[slot].output = std::move(output);
        });
}

void ClientCalls::join()
{
    if (last.joinable())
    {
        last.join();
    }
}

void ClientCalls::finish(const std::string& path)
{
    join();
    std::ofstream out(path);
    for (const Result& result : results)
    {
        nlohmann::json line = {{"at", result.call.at},
                               {"busctl", result.call.busctl},
                               {"status", result.status},
                               {"output", result.output}};
        out << line.dump() << "\n";
    }
}

} // namespace ubbsim
