// Shared state of the fake's modules.
#pragma once

#include <vector>

namespace qvfake {
// Each module of the fake that keeps scripted state registers how qvfake_reset clears it.
std::vector<void (*)()>& resetHooks();
struct ResetRegistrar {
    explicit ResetRegistrar(void (*fn)()) { resetHooks().push_back(fn); }
};
}  // namespace qvfake
