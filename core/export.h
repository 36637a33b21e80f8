// The one export macro: what carries it is part of libchainvet's ABI.
#pragma once

#define CHAINVET_API __attribute__((visibility("default")))
#define CHAINVET_HIDDEN __attribute__((visibility("hidden")))
