#pragma once

namespace simulation {

/// What a life may have forgotten to give back.
struct Holdings {
    long blocks;
    int descriptors;
};

/// Counts the blocks of memory that `new` has given out and the open descriptors.
Holdings CountHoldings();

}  // namespace simulation
