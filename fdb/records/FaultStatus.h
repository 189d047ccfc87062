#pragma once

/// Whether a fault is active. 32 bits wide, unsigned; a variable may hold another number than the two named ones, but
/// only these two come back unchanged after being stored and read.
enum faultStatus_t : unsigned int
{
    FAULT_INACTIVE = 0,
    FAULT_ACTIVE = 1
};
