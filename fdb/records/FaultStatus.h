#pragma once

/// Whether a fault is active. 32 bits wide, unsigned. A variable may hold another number, but only the two named ones
/// come back unchanged from the file.
enum faultStatus_t : unsigned int
{
    FAULT_INACTIVE = 0,
    FAULT_ACTIVE = 1
};
