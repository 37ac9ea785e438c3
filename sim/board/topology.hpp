#pragma once

#include <array>
#include <cstdint>

namespace ubbsim
{

// Where the board's devices answer. The regulator addresses are those that
// the VR configuration files of the run name.
namespace topology
{

inline constexpr int busCount = 16;

inline constexpr int oamMuxBus = 2;
inline constexpr uint8_t oamMuxAddress = 0x70;
inline constexpr int ubbFpgaBus = 3;
inline constexpr uint8_t ubbFpgaAddress = 0x56;
inline constexpr int powerBus = 4;
inline constexpr uint8_t smcExpanderAddress = 0x25;
inline constexpr int smcStatusBus = 12;
inline constexpr uint8_t smcStatusAddress = 0x23;
inline constexpr int sensorBus = 14;
inline constexpr uint8_t linkConfigAddress = 0x20;
inline constexpr uint8_t moduleIdAddress = 0x27;
inline constexpr uint8_t emcAddress = 0x4C;
inline constexpr uint8_t rmAddress = 0x56;

// The RM of OAM n sits on this bus.
inline constexpr std::array<int, 8> rmBus{5, 6, 7, 8, 9, 10, 11, 0};

// The retimers behind these switch positions hold the first image of a
// board with two retimer images; the others hold the second.
inline constexpr uint8_t retimer1Positions = 0x66;

// Channel 4: the UBB's hot-swap controllers and regulators.
inline constexpr std::array<uint8_t, 5> ubbHotswapAddresses{0x1E, 0x1C, 0x1D,
                                                            0x11, 0x13};
inline constexpr std::array<uint8_t, 3> ubbRegulatorAddresses{0x40, 0x41, 0x42};

// Behind the OAM mux, on every OAM.
inline constexpr uint8_t dacAddress = 0x60;
inline constexpr uint8_t defaultIbcAddress = 0x11;
inline constexpr uint8_t oamHotswapAddress = 0x15;
inline constexpr std::array<uint8_t, 2> oamRegulatorAddresses{0x44, 0x45};

} // namespace topology

} // namespace ubbsim
