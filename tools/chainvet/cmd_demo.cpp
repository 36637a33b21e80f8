// chainvet demo: the policies on the bundled root, intermediate and leaf.
#include "command.h"
#include "common.h"
#include "demo_data.h"

#include "policies/chain_policies.h"

#include <cstdio>
#include <cstring>
#include <string>

using namespace chainvet_tool;

namespace {

const char* kHelp =
    "usage: chainvet demo\n\n"
    "Runs the chain policies on the bundled demo PKI (a root CA, an intermediate CA\n"
    "and a leaf, made by tools/make-fixtures.sh) and shows a pass and a failure.\n";

std::vector<unsigned char> demoCert(const char* name) {
    for (unsigned i = 0; i < kDemoCertCount; ++i)
        if (std::strcmp(kDemoCerts[i].name, name) == 0)
            return std::vector<unsigned char>(kDemoCerts[i].data, kDemoCerts[i].data + kDemoCerts[i].size);
    return {};
}

int basicConstraints(const char* title, std::vector<const char*> names, int expected) {
    std::printf("\n== %s\n   chain: ", title);
    std::vector<std::vector<unsigned char>> ders;
    for (size_t i = 0; i < names.size(); ++i) {
        std::printf("%s%s", i ? " <- " : "", names[i]);
        ders.push_back(demoCert(names[i]));
    }
    std::printf("\n");
    CertList certs;
    if (!certs.loadMemory(ders)) {
        std::printf("cannot parse the bundled certificates: %s\n", describeError(GetLastError()).c_str());
        return kCouldNotRun;
    }
    Chain chain(certs);
    CERT_CHAIN_POLICY_PARA para{sizeof para, BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_CA_FLAG, nullptr};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, nullptr};
    std::printf("policy:   basic-constraints, dwFlags 0x80000000\n");
    BOOL ok = CertDllVerifyBasicConstraintsCertificateChainPolicy(CERT_CHAIN_POLICY_BASIC_CONSTRAINTS,
                                                                  chain.get(), &para, &status);
    int rc = reportOutcome(ok, GetLastError(), status, "the end certificate may act as a CA",
                           "the end certificate may not act as a CA");
    return rc == expected ? 0 : 1;
}

int run(const std::vector<std::string>& args) {
    if (!args.empty()) {
        std::fprintf(stderr, "%s", kHelp);
        return kUsage;
    }
    std::printf("chainvet demo: the bundled root CA, intermediate CA and leaf\n");
    int unexpected = 0;
    unexpected += basicConstraints("An intermediate CA asks to act as a CA (pass expected)",
                                   {"intermediate", "root"}, kPass);
    unexpected += basicConstraints("A leaf with cA FALSE asks to act as a CA (failure expected)",
                                   {"leaf", "intermediate", "root"}, kChainFailed);
    unexpected += basicConstraints("A leaf without basic constraints (failure expected)",
                                   {"leaf-nobc", "intermediate", "root"}, kChainFailed);
    unexpected += basicConstraints("The self-signed root alone (pass expected)", {"root"}, kPass);
    std::printf("\n%s\n", unexpected ? "demo: some outcome was not the expected one"
                                     : "demo: every outcome as expected");
    return unexpected ? 1 : 0;
}

CHAINVET_COMMAND("demo", "run the policies on the bundled demo PKI", kHelp, run);

}  // namespace
