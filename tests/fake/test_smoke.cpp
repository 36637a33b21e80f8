#include "policies/chain_policies.h"
#include "support/testsupport.h"
TEST(Smoke, Builds) { SUCCEED(); }
