#include "policies/chain_policies.h"

#include <cstdio>

// Calls the basic-constraints policy with a bad status record: FALSE and 87 prove that the
// installed library and stand-in were found and linked.
int main() {
    CERT_CHAIN_POLICY_STATUS status{1, 0, 0, 0, nullptr};
    BOOL ok = CertDllVerifyBasicConstraintsCertificateChainPolicy(CERT_CHAIN_POLICY_BASIC_CONSTRAINTS, nullptr,
                                                                  nullptr, &status);
    std::printf("%d %u\n", ok, static_cast<unsigned>(GetLastError()));
    return ok == FALSE && GetLastError() == 87 ? 0 : 1;
}
