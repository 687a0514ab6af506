#pragma once

#include <cstdint>

// Raises the process's soft limit of open descriptors towards i_wanted, never past the hard
// limit; the soft limit in force afterwards, 0 when it cannot be read.
std::uint64_t RaiseDescriptorLimit(std::uint64_t i_wanted);

// How many more descriptors the process could open now, counted up to i_wanted by duplicating
// i_descriptor, an open one, and closing the copies again.
int SpareDescriptors(int i_descriptor, int i_wanted);
