// chainvet check basic-constraints
#include "command.h"
#include "common.h"

#include "policies/chain_policies.h"

#include <cstdio>

using namespace chainvet_tool;

namespace {

const char* kHelp =
    "usage: chainvet check basic-constraints [--flags HEX] CERT [ISSUER...]\n\n"
    "May the end certificate act as a certification authority? CERT is the end\n"
    "certificate, ISSUERs follow towards the root; DER or PEM files.\n\n"
    "  --flags HEX   dwFlags of CERT_CHAIN_POLICY_PARA (default 80000000: the CA check;\n"
    "                40000000 asks the end-entity check, which is not implemented)\n"
    "  --trace       the library's trace on stderr\n\n"
    "Exit status: 0 pass, 1 the chain failed, 2 the policy could not run, 64 bad usage.\n";

int run(const std::vector<std::string>& args);

const Command kCommand{"check basic-constraints",
                       "may the end certificate act as a CA?", kHelp, run};
Registrar s_register(kCommand);

int run(const std::vector<std::string>& args) {
    DWORD flags = BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_CA_FLAG;
    std::vector<std::string> files;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--flags") {
            if (i + 1 >= args.size() || !parseHex32(args[i + 1], flags))
                return usage(kCommand, "--flags needs a hexadecimal value");
            ++i;
        } else if (!args[i].empty() && args[i][0] == '-') {
            return usage(kCommand, "unknown option " + args[i]);
        } else {
            files.push_back(args[i]);
        }
    }
    if (files.empty())
        return usage(kCommand, "no certificate given");

    CertList certs;
    if (!certs.load(files))
        return kCouldNotRun;
    Chain chain(certs);

    CERT_CHAIN_POLICY_PARA para{sizeof para, flags, nullptr};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, nullptr};
    std::printf("policy:   basic-constraints, dwFlags 0x%08X, %zu certificate(s)\n",
                static_cast<unsigned>(flags), files.size());
    SetLastError(0);
    BOOL ok = CertDllVerifyBasicConstraintsCertificateChainPolicy(CERT_CHAIN_POLICY_BASIC_CONSTRAINTS,
                                                                  chain.get(), &para, &status);
    return reportOutcome(ok, GetLastError(), status, "the end certificate may act as a CA",
                         "the end certificate may not act as a CA");
}

}  // namespace
