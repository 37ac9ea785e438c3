// The GPIO backend on the kernel's character devices: lines by name, the
// requests the kernel sees, levels seen from outside, a busy line, and the
// journal entry that a busy read leaves.
#include "guest_board.hpp"

#include "fakes/console_capture.hpp"
#include "utils/gpio_lines.hpp"
#include "utils/platform/platform.hpp"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>

#include <gtest/gtest.h>

namespace orvane::kernel_test
{
namespace
{

using platform::GpioDirection;
using Texts = std::vector<std::string>;

bool has(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

TEST(KernelGpio, LinesAreFoundByTheBoardsNamesOnly)
{
    for (const char* name :
         {"GPU_BASE_PWR_EN", "GPU_BASE_PWR_GD", "GPU_BASE_FPGA_READY",
          "GPU_BASE_HMC_READY", "SMC_FPGA_PROG_CTRL", "SMC_UBB_FPGA_SPI_SEL",
          "SMC_UBB_FLASH_AB_SEL", "UBB_FPGA_PROG_B", "HDT_DBREQ_L"})
    {
        EXPECT_NE(platform::gpio().findLine(name), nullptr) << name;
    }
    int value = 7;
    std::string text = test::console([&] {
        EXPECT_FALSE(GetGPIOValue("GPU_BASE_PWR_OK", value));
        EXPECT_FALSE(SetGPIOOutput("GPU_BASE_PWR_OK", 1));
    });
    EXPECT_EQ(value, 7);
    EXPECT_TRUE(has(text, "Can't find lineGPU_BASE_PWR_OK")) << text;
    EXPECT_TRUE(has(text, "Failed to find the GPU_BASE_PWR_OK line.")) << text;
}

TEST(KernelGpio, RequestsAndLevelsAreWhatTheKernelSees)
{
    SimChip chip;
    KernelTrace trace(chip);
    LineWatch watch(chip);
    // Held through the backend, a driven level shows outside at once.
    auto line = platform::gpio().findLine("GPU_BASE_PWR_GD");
    line->request("holder", GpioDirection::output, 0, 1);
    EXPECT_EQ(chip.value("GPU_BASE_PWR_GD"), 1);
    line->setValue(0);
    EXPECT_EQ(chip.value("GPU_BASE_PWR_GD"), 0);
    line->release();

    EXPECT_TRUE(SetGPIOOutput("UBB_FPGA_PROG_B", 1));
    for (int level : {1, 0})
    {
        chip.pull("GPU_BASE_PWR_EN", level);
        int value = -1;
        EXPECT_TRUE(GetGPIOValue("GPU_BASE_PWR_EN", value));
        EXPECT_EQ(value, level);
    }
    // A request for output drives its initial level already.
    EXPECT_EQ(trace.texts(), (Texts{"GPU_BASE_PWR_GD=1", "GPU_BASE_PWR_GD=0",
                                    "UBB_FPGA_PROG_B=1", "UBB_FPGA_PROG_B=1"}));
    // Physical levels: no active-low request, also for a name ending in _B.
    EXPECT_EQ(watch.changes(),
              (Texts{"GPU_BASE_PWR_GD requested by holder as output",
                     "GPU_BASE_PWR_GD released",
                     "UBB_FPGA_PROG_B requested by SetGPIOOutput as output",
                     "UBB_FPGA_PROG_B released",
                     "GPU_BASE_PWR_EN requested by GetGPIOValue as input",
                     "GPU_BASE_PWR_EN released",
                     "GPU_BASE_PWR_EN requested by GetGPIOValue as input",
                     "GPU_BASE_PWR_EN released"}));
}

// The journal's socket, bound by the test: what the process sends to the
// journal arrives here.
class JournalSocket
{
  public:
    JournalSocket() : fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", path);
        ::unlink(path);
        timeval wait{5, 0};
        if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) <
                0 ||
            ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait)) < 0)
        {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }
    ~JournalSocket()
    {
        ::close(fd);
        ::unlink(path);
    }
    std::string next()
    {
        std::string entry(4096, '\0');
        ssize_t length = ::recv(fd, entry.data(), entry.size(), 0);
        entry.resize(length > 0 ? static_cast<size_t>(length) : 0);
        return entry;
    }

  private:
    static constexpr const char* path = "/run/systemd/journal/socket";
    int fd;
};

TEST(KernelGpio, ALineThatAnotherConsumerHoldsIsBusy)
{
    JournalSocket journal;
    auto holder = platform::gpio().findLine("GPU_BASE_PWR_EN");
    holder->request("holder", GpioDirection::input, 0, 0);
    try
    {
        platform::gpio()
            .findLine("GPU_BASE_PWR_EN")
            ->request("second", GpioDirection::input, 0, 0);
        ADD_FAILURE() << "a held line was requested twice";
    }
    catch (const std::system_error& e)
    {
        EXPECT_EQ(e.code().value(), EBUSY);
    }

    std::string text = test::console(
        [] { EXPECT_FALSE(SetGPIOOutput("GPU_BASE_PWR_EN", 1)); });
    EXPECT_TRUE(has(text, "Error setting gpio as Output: GPU_BASE_PWR_EN"));
    EXPECT_TRUE(has(text, "Device or resource busy")) << text;

    int value = 7;
    const auto start = std::chrono::steady_clock::now();
    text = test::console(
        [&] { EXPECT_FALSE(GetGPIOValue("GPU_BASE_PWR_EN", value)); });
    // 10,000 requests, 10 us apart at the least.
    EXPECT_GE(std::chrono::steady_clock::now() - start,
              std::chrono::milliseconds(100));
    EXPECT_EQ(value, 7);
    EXPECT_TRUE(has(text, "error is: ")) << text;
    const std::string entry = journal.next();
    for (const char* field :
         {"PRIORITY=3\n", "CODE_LINE=811\n", "CODE_FUNC=GetGPIOValue\n",
          "MESSAGE=Error setting gpio as Input GPU_BASE_PWR_EN\n"})
    {
        EXPECT_TRUE(has(entry, field)) << field << " not in\n" << entry;
    }

    holder->release();
    EXPECT_TRUE(GetGPIOValue("GPU_BASE_PWR_EN", value));
}

} // namespace
} // namespace orvane::kernel_test
