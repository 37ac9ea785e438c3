#pragma once

#include <array>
#include <cstdint>
#include <string_view>

// The board as secure boot sees it: where the image readers find the
// devices, and how the RMs are reached.
namespace orvane::secure_boot_board
{

// The SMC's SPI controller, which Linux may only hold for a read.
inline constexpr std::string_view spiDevice = "1e631000.spi";
inline constexpr std::string_view spiDriverDir =
    "/sys/bus/platform/drivers/aspeed-smc/";
inline constexpr std::string_view spiBindFile =
    "/sys/bus/platform/drivers/aspeed-smc/bind";
inline constexpr std::string_view spiUnbindFile =
    "/sys/bus/platform/drivers/aspeed-smc/unbind";
inline constexpr std::string_view spiMtdDir =
    "/sys/devices/platform/ahb/1e631000.spi/mtd";
inline constexpr std::string_view flashPartitionName = "ubb-spi2:0";

// The GPIO lines that route the UBB FPGA's SPI flash to the SMC.
inline constexpr std::string_view spiSelectLine = "SMC_UBB_FPGA_SPI_SEL";
inline constexpr std::string_view flashSideLine = "SMC_UBB_FLASH_AB_SEL";

// The UBB FPGA on I2C bus 3, and its registers for the parallel IFWI read.
inline constexpr int ubbFpgaBus = 3;
inline constexpr uint8_t ubbFpgaAddress = 0x56;
inline constexpr uint8_t spiRoutingReg = 0x40;
inline constexpr uint8_t spiRoutingReg2 = 0x41;
inline constexpr uint8_t misoDifferenceReg = 0x42;
inline constexpr uint8_t oamPresenceReg = 0x63;
inline constexpr std::string_view ifwiDumpFile = "/tmp/ifwi_dump";

// Every OAM's RM answers at this address on the OAM's own bus.
inline constexpr uint8_t rmAddress = 0x56;
inline constexpr std::array<int, 8> rmBus{5, 6, 7, 8, 9, 10, 11, 0};
// The two bytes before the four of the bundle version in its write.
inline constexpr std::array<uint8_t, 2> bundleVersionPrefix{0xF4, 0x0A};

// The positions of the retimers' I2C switch.
inline constexpr std::array<uint8_t, 8> retimerSwitch{0x01, 0x02, 0x04, 0x08,
                                                      0x10, 0x20, 0x40, 0x80};
inline constexpr std::array<uint8_t, 4> retimer1Switch{0x02, 0x04, 0x20, 0x40};
inline constexpr std::array<uint8_t, 4> retimer2Switch{0x01, 0x08, 0x10, 0x80};

// The switch positions that the retimer update script programs at once:
// every retimer, or those of one of the two images.
inline constexpr uint8_t retimerMuxAll = 0xFF;
inline constexpr uint8_t retimer1Mux = 0x66;
inline constexpr uint8_t retimer2Mux = 0x99;

// The board's programming tools; only their exit status is used.
inline constexpr std::string_view retimerTool =
    "/usr/sbin/retimer-update-secureboot.sh";
inline constexpr std::string_view ubbFpgaTool = "/usr/sbin/ubb-fpga-update.sh";
inline constexpr std::string_view ifwiTool = "/usr/sbin/ifwi-update.sh";
inline constexpr std::string_view rmTool = "/usr/bin/zel-rm";

// Archives of retimer images that a manual update left behind.
inline constexpr std::string_view retimerArchiveDir =
    "/var/lib/orvane/retimer_images/";

// The RM service, outside this system.
inline constexpr std::string_view rmService = "xyz.openbmc_project.rm";
inline constexpr std::string_view rmObject = "/xyz/openbmc_project/rm/Ctrl";
inline constexpr std::string_view rmInterface = "xyz.openbmc_project.rmIntf";

// The SMC's own flash, which the firmware copy reads and programs whole:
// the running side at mtd0, the other side as the partition "bmc_backup"
// below the first SPI controller.
inline constexpr uint32_t smcImageBlocks = 86272; // of 512 bytes
inline constexpr std::string_view runningSmcFlash = "/dev/mtd0";
inline constexpr std::string_view smcMtdDir =
    "/sys/devices/platform/ahb/1e620000.spi/mtd/";
inline constexpr std::string_view smcBackupPartition = "bmc_backup";
// Erased before the backup flash is programmed, in this order.
inline constexpr std::array<std::string_view, 3> smcUpdatePartitions{
    "bmc_backup_update", "smc_ahdr_update", "apcfg_update"};

// The tools that program the inactive side's devices.
inline constexpr std::string_view ubbFpgaUpdateTool =
    "/usr/sbin/ubb-fpga-update.sh";
inline constexpr std::string_view rotUpdateTool = "/usr/sbin/rot-update.sh";

// The SMC's updater, told while the backup flash is being rewritten.
inline constexpr std::string_view updaterService =
    "xyz.openbmc_project.Software.BMC.Updater";
inline constexpr std::string_view updaterObject =
    "/xyz/openbmc_project/software";
inline constexpr std::string_view updateStatusInterface =
    "xyz.openbmc_project.Software.UpdateStatus";
inline constexpr std::string_view smcUpdateOnGoing = "SMCUpdateOnGoing";

} // namespace orvane::secure_boot_board
