#include "virtual/virtual_machine.hpp"

#include <gtest/gtest.h>

namespace ubbsim
{
namespace
{

const std::string pathPrefix = "PATH='/sim/usr/sbin:/sim/usr/bin:'\"$PATH\"; ";

TEST(VirtualShell, BoardPathsMoveUnderTheRootAndToolsStayTheMachines)
{
    VirtualShell shell("/sim");
    EXPECT_EQ(shell.rewrite("/usr/share/images/rm_recovery.sh 2>&1 | tee "
                            "/run/initramfs/log_nv/rm_recovery.log"),
              pathPrefix + "/sim/usr/share/images/rm_recovery.sh 2>&1 | tee "
                           "/sim/run/initramfs/log_nv/rm_recovery.log");
    EXPECT_EQ(shell.rewrite("echo 1e631000.spi "
                            ">/sys/bus/platform/drivers/aspeed-smc/unbind"),
              pathPrefix + "echo 1e631000.spi "
                           ">/sim/sys/bus/platform/drivers/aspeed-smc/unbind");
    EXPECT_EQ(shell.rewrite("dd if=/dev/mtd0 of=/tmp/A/smc.bin bs=512"),
              pathPrefix + "dd if=/sim/dev/mtd0 of=/sim/tmp/A/smc.bin bs=512");
    // busctl and the shell itself are the machine's; so are paths that
    // only contain a board prefix further in.
    EXPECT_EQ(shell.rewrite("busctl call xyz.openbmc_project.FruDevice "
                            "/xyz/openbmc_project/FruDevice x ReScan"),
              pathPrefix + "busctl call xyz.openbmc_project.FruDevice "
                           "/xyz/openbmc_project/FruDevice x ReScan");
    EXPECT_EQ(shell.rewrite("/bin/echo /opt/run/x"),
              pathPrefix + "/bin/echo /opt/run/x");
    EXPECT_EQ(shell.rewrite("/usr/bin/VR_fault_dump-v0.9.1.sh 2>&1"),
              pathPrefix + "/sim/usr/bin/VR_fault_dump-v0.9.1.sh 2>&1");
}

} // namespace
} // namespace ubbsim
