#pragma once

#include <semaphore.h>

#include <cstdint>
#include <string>

namespace orvane
{

// Switches an OAM's IBC and eFuse enables through the RM service while its
// regulators are written; only some designs have them. True on success and
// when there is nothing to do.
bool ctrl_IBC_EN_and_Efuse_EN(uint32_t oamIndex, bool enable, int hwDesign);

// The writable bundle folder of a side: 0 is A, any other B.
std::string VrBundleBase(int side);

// Makes sure the design folder `folder` of a side's writable bundle is
// there, copying it (or the whole bundle) from the read-only image when it
// isn't. True when the folder can be used.
bool EnsureVrConfigDir(const std::string& folder, int side);

// The halt of both updaters: the event, and the Boot Critical Section left.
void HaltVrBoot(sem_t* bootSemaphore);

} // namespace orvane
