#include "server/board_server.hpp"

#include "server/dispatch.hpp"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace ubbsim
{

BoardServer::BoardServer(Board& board, std::string socketPath) :
    board(board), socketPath(std::move(socketPath))
{}

BoardServer::~BoardServer()
{
    stop();
}

void BoardServer::start()
{
    listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (listener < 0 || socketPath.size() >= sizeof(address.sun_path))
    {
        throw std::system_error(errno ? errno : ENAMETOOLONG,
                                std::system_category(), "board socket");
    }
    std::strncpy(address.sun_path, socketPath.c_str(),
                 sizeof(address.sun_path) - 1);
    ::unlink(socketPath.c_str());
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address),
               sizeof(address)) != 0 ||
        ::listen(listener, 16) != 0)
    {
        throw std::system_error(errno, std::system_category(),
                                "board socket " + socketPath);
    }
    running = true;
    acceptor = std::thread(&BoardServer::acceptLoop, this);
}

void BoardServer::stop()
{
    if (!running.exchange(false))
    {
        return;
    }
    ::shutdown(listener, SHUT_RDWR);
    acceptor.join();
    ::close(listener);
    {
        std::lock_guard lock(mutex);
        for (int fd : connections)
        {
            ::shutdown(fd, SHUT_RDWR);
        }
    }
    for (auto& worker : workers)
    {
        worker.join();
    }
    workers.clear();
    ::unlink(socketPath.c_str());
}

void BoardServer::acceptLoop()
{
    while (running)
    {
        int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            return;
        }
        std::lock_guard lock(mutex);
        connections.push_back(fd);
        workers.emplace_back(&BoardServer::serve, this, fd, nextOwner++);
    }
}

uint64_t BoardServer::requestsFrom(pid_t process)
{
    std::lock_guard lock(mutex);
    auto found = requestsByProcess.find(process);
    return found == requestsByProcess.end() ? 0 : found->second;
}

void BoardServer::serve(int fd, uint64_t owner)
{
    ucred peer{};
    socklen_t length = sizeof(peer);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0)
    {
        peer.pid = -1;
    }
    std::vector<uint8_t> request;
    while (receiveFrame(fd, request))
    {
        {
            std::lock_guard lock(mutex);
            ++requestsByProcess[peer.pid];
        }
        if (!sendFrame(fd, dispatch(board, request, owner)))
        {
            break;
        }
    }
    // A daemon that died or was killed gives its lines back.
    board.releaseOwner(owner);
    std::lock_guard lock(mutex);
    connections.remove(fd);
    ::close(fd);
}

} // namespace ubbsim
