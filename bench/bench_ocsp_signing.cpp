// The OCSP-signing policy of a delegated responder over 1,000 CertIDs under one hash
// algorithm beside 1,000 spread over four: the responder's issuer is hashed once per
// algorithm and call, so the difference is three more pairs of hashes, not a thousand.
// per_certid is the call's time divided by its CertIDs.
#include "policies/chain_policies.h"
#include "tools/chainvet/certid.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

struct Setup {
    Setup() {
        const std::string dir = std::string(CHAINVET_FIXTURES_DIR) + "/pki/";
        for (const char* f : {"ocsp-delegated.der", "ocsp-ca.der", "ocsp-subject.der"})
            certs.push_back(QVCertLoadFile((dir + f).c_str()));
        chain = QVCertBuildChain(certs.data(), 2);
    }
    ~Setup() {
        QVCertFreeChain(chain);
        for (PCCERT_CONTEXT c : certs)
            CertFreeCertificateContext(c);
    }
    std::vector<PCCERT_CONTEXT> certs;
    PCCERT_CHAIN_CONTEXT chain = nullptr;
};

Setup& setup() {
    static Setup s;
    return s;
}

void PolicyOverCertIds(benchmark::State& state, std::vector<std::string> oids) {
    Setup& s = setup();
    const size_t count = static_cast<size_t>(state.range(0));
    std::vector<chainvet_tool::CertId> ids;
    std::vector<QVOCSP_CERT_ID> recs(count);
    for (const std::string& oid : oids)
        ids.push_back(chainvet_tool::computeCertId(s.certs[2], s.certs[1], oid.c_str()));
    for (size_t i = 0; i < count; ++i) {
        chainvet_tool::CertId& id = ids[i % ids.size()];
        QVOCSP_CERT_ID& r = recs[i];
        r.HashAlgorithm.pszObjId = const_cast<LPSTR>(oids[i % oids.size()].c_str());
        r.IssuerNameHash = {static_cast<DWORD>(id.issuerNameHash.cbData()), id.issuerNameHash.pbData()};
        r.IssuerKeyHash = {static_cast<DWORD>(id.issuerKeyHash.cbData()), id.issuerKeyHash.pbData()};
        r.SerialNumber = {static_cast<DWORD>(id.serial.size()), id.serial.data()};
    }
    std::vector<DWORD> checked(count);
    QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_PARA extraPara{sizeof extraPara, nullptr, static_cast<DWORD>(count),
                                                          recs.data(), nullptr};
    QVOCSP_SIGNING_EXTRA_CERT_CHAIN_POLICY_STATUS extra{sizeof extra, 0, 0, 0, 0, checked.data()};
    CERT_CHAIN_POLICY_PARA para{sizeof para, 0, &extraPara};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, &extra};
    for (auto _ : state) {
        const BOOL ok = CertDllVerifyOCSPSigningCertificateChainPolicy(nullptr, s.chain, &para, &status);
        if (!ok || extra.dwError != 0) {
            state.SkipWithError("the responder failed");
            break;
        }
        benchmark::DoNotOptimize(checked.data());
    }
    state.counters["per_certid"] = benchmark::Counter(static_cast<double>(count),
                                                      benchmark::Counter::kIsIterationInvariantRate |
                                                          benchmark::Counter::kInvert);
}

const std::vector<std::string> kOne{"1.3.14.3.2.26"};
const std::vector<std::string> kFour{"1.3.14.3.2.26", "2.16.840.1.101.3.4.2.1", "2.16.840.1.101.3.4.2.3",
                                     "1.2.643.7.1.1.2.2"};

}  // namespace

BENCHMARK_CAPTURE(PolicyOverCertIds, one_algorithm, kOne)->Arg(1)->Arg(1000);
BENCHMARK_CAPTURE(PolicyOverCertIds, four_algorithms, kFour)->Arg(4)->Arg(1000);

BENCHMARK_MAIN();
