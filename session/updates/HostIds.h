// The process-wide table of host ids: small numbers, 1 to 4095, unique
// among the hosts of the process. Reached only from the SOAP consumer
// thread that owns the inventory, so it has no lock of its own.
#pragma once

namespace Harbec {

// Takes the lowest free id; 4096, unmarked, when all are taken.
unsigned int getHostId();
// Gives an id back; freeing twice is harmless.
void freeHostId(unsigned int id);
void freeAllHostIds();

}  // namespace Harbec
