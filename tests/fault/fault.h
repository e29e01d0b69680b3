// Makes chosen calls of the library into the C library fail. The linker routes them here (--wrap), in every build.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace fault {

/// What the hit call does instead of its work.
struct Failure {
    int error = 0;        ///< fails with this errno
    bool isShort = false; ///< reads and writes do half of their bytes instead of failing
};

/// The functions that can be made to fail.
const std::vector<std::string>& Functions();
/// Those that matter to operations on the network's devices.
const std::vector<std::string>& NetworkFunctions();

/// From now on the call number `call` (from 1) of `function` fails; every call with 0.
void Arm(const std::string& function, int call, Failure failure);
/// Ends it; true if a call was hit.
bool Disarm();

/// While it lives, calls that its thread makes fail at random: one in `oneIn`, each in a way that the system might choose.
/// What the other threads do is not touched.
class Random {
public:
    Random(uint64_t seed, unsigned oneIn);
    ~Random();
    Random(const Random&) = delete;
    Random& operator=(const Random&) = delete;

    /// Calls that have failed.
    unsigned Hits() const { return hits_; }
    /// Whether a call of this function is to fail now, and how.
    bool Decide(const char* function, Failure* failure);

private:
    uint64_t Next();

    uint64_t state_;
    unsigned oneIn_;
    unsigned hits_ = 0;
};

/// While it lives nothing fails at random in its thread.
class Calm {
public:
    Calm();
    ~Calm();
    Calm(const Calm&) = delete;
    Calm& operator=(const Calm&) = delete;

private:
    Random* before_;
};

/// How many descriptors this process has open.
int OpenDescriptors();
/// Whether a list of functions names one.
bool Has(const std::vector<std::string>& list, const std::string& name);

/// While it lives nothing fails: for what a test itself asks of the system in the middle of an operation.
class Pause {
public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
};

} // namespace fault
