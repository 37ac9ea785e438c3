#include "virtual/board_link.hpp"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

namespace ubbsim
{

namespace
{

// Closes the thread's connection when the thread ends.
struct ThreadConnection
{
    int fd = -1;
    ~ThreadConnection()
    {
        if (fd >= 0)
        {
            ::close(fd);
        }
    }
};

thread_local ThreadConnection threadConnection;

int connectTo(const std::string& path)
{
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
    {
        return -1;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) !=
        0)
    {
        ::close(fd);
        return -1;
    }
    return fd;
}

} // namespace

BoardLink::BoardLink(std::string socketPath, const TimeBase& time) :
    socketPath(std::move(socketPath)), clock(time)
{}

int BoardLink::connection()
{
    if (threadConnection.fd < 0)
    {
        threadConnection.fd = connectTo(socketPath);
    }
    return threadConnection.fd;
}

std::vector<uint8_t> BoardLink::call(const WireWriter& request)
{
    SimClock::Hold hold(clock);
    int fd = connection();
    std::vector<uint8_t> reply;
    if (fd < 0 || !sendFrame(fd, request.buffer()) || !receiveFrame(fd, reply))
    {
        if (fd >= 0)
        {
            ::close(fd);
            threadConnection.fd = -1;
        }
        return {};
    }
    return reply;
}

} // namespace ubbsim
