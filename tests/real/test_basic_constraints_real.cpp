// The basic-constraints policy on real certificates parsed by the GnuTLS stand-in: the
// project's own fixtures, and every certificate of the public corpus against GnuTLS.
#include "policies/chain_policies.h"
#include "support/testsupport.h"

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include <cstdio>
#include <memory>

using namespace testsupport;

namespace {

struct Cert {
    PCCERT_CONTEXT ctx;
    explicit Cert(const std::string& name) : ctx(QVCertLoadFile((std::string(CHAINVET_FIXTURES_DIR) + "/pki/" + name + ".der").c_str())) {}
    Cert(const std::vector<uint8_t>& der)
        : ctx(CertCreateCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size()))) {}
    ~Cert() {
        if (ctx)
            CertFreeCertificateContext(ctx);
    }
};

// The CA check over a chain built by the stand-in; ok, dwError and whether the chain is partial.
std::tuple<BOOL, DWORD, bool> caCheck(std::vector<PCCERT_CONTEXT> certs) {
    PCCERT_CHAIN_CONTEXT chain = QVCertBuildChain(certs.data(), static_cast<DWORD>(certs.size()));
    CERT_CHAIN_POLICY_PARA para{sizeof para, BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_CA_FLAG, nullptr};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, nullptr};
    const BOOL ok = CertDllVerifyBasicConstraintsCertificateChainPolicy(CERT_CHAIN_POLICY_BASIC_CONSTRAINTS, chain,
                                                                        &para, &status);
    const bool partial = (chain->TrustStatus.dwErrorStatus & CERT_TRUST_IS_PARTIAL_CHAIN) != 0;
    QVCertFreeChain(chain);
    return std::make_tuple(ok, status.dwError, partial);
}

TEST(BasicConstraintsReal, Fixtures) {
    Cert root("root"), intermediate("intermediate"), leaf("leaf"), leafNoBc("leaf-nobc"), rootNoBc("root-nobc"),
        both("both-bc"), old("old-bc");
    for (const Cert* c : {&root, &intermediate, &leaf, &leafNoBc, &rootNoBc, &both, &old})
        ASSERT_NE(c->ctx, nullptr);
    const DWORD fail = 0x80096019u;
    const struct {
        const char* name;
        std::vector<PCCERT_CONTEXT> chain;
        DWORD dwError;
        bool partial;
    } cases[] = {
        {"CA with cA TRUE", {intermediate.ctx, root.ctx}, 0, false},
        {"root CA alone", {root.ctx}, 0, false},
        {"leaf with cA FALSE", {leaf.ctx, intermediate.ctx, root.ctx}, fail, false},
        {"self-signed root without the extension", {rootNoBc.ctx}, 0, false},
        {"two elements, end certificate without the extension", {leafNoBc.ctx, intermediate.ctx}, fail, true},
        {"partial chain without the extension", {leafNoBc.ctx}, fail, true},
        {"both 2.5.29.19 (cA FALSE) and 2.5.29.10", {both.ctx, root.ctx}, fail, false},
        {"only 2.5.29.10, read by the current rule", {old.ctx, root.ctx}, 0, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(caCheck(c.chain), std::make_tuple(TRUE, c.dwError, c.partial)) << c.name;
}

// Over the corpus: the CA verdict agrees with GnuTLS' reading of basic constraints. A
// certificate without the extension is judged alone, so it may be CA only if self-issued.
TEST(BasicConstraintsReal, CorpusAgreesWithGnutls) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    int passed = 0, failed = 0, couldNotRun = 0, disagreed = 0, skipped = 0;
    for (const std::string& path : corpusFiles("cert")) {
        if (path.find("/bad/") != std::string::npos)
            continue;
        std::vector<uint8_t> der = readFile(path);
        gnutls_x509_crt_t crt;
        gnutls_x509_crt_init(&crt);
        gnutls_datum_t d{der.data(), static_cast<unsigned>(der.size())};
        unsigned int critical = 0, ca = 0;
        int pathLen = 0, rc = 0;
        const bool parsed = gnutls_x509_crt_import(crt, &d, GNUTLS_X509_FMT_DER) >= 0;
        if (parsed)
            rc = gnutls_x509_crt_get_basic_constraints(crt, &critical, &ca, &pathLen);
        gnutls_x509_crt_deinit(crt);
        if (!parsed) {
            ++skipped;
            continue;
        }
        Cert cert(der);
        if (cert.ctx == nullptr) {
            ++disagreed;
            ADD_FAILURE() << path << ": GnuTLS parses it, the stand-in does not";
            continue;
        }
        PCERT_INFO info = cert.ctx->pCertInfo;
        const bool hasOld = CertFindExtension("2.5.29.10", info->cExtension, info->rgExtension) != nullptr;
        BOOL ok;
        DWORD dwError;
        bool partial;
        std::tie(ok, dwError, partial) = caCheck({cert.ctx});
        const bool gotCa = ok && dwError == 0;
        !ok ? ++couldNotRun : gotCa ? ++passed : ++failed;
        // Where GnuTLS cannot read the value (or there is only the old extension) nothing is compared.
        if (rc < 0 && (rc != GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE || hasOld))
            continue;
        const bool expectCa = rc >= 0 ? ca != 0 : !partial;
        if (gotCa != expectCa) {
            ++disagreed;
            ADD_FAILURE() << path << ": policy " << (gotCa ? "CA" : "not CA") << ", GnuTLS " << (expectCa ? "CA" : "not CA");
        }
    }
    std::printf("[ corpus   ] basic constraints over corpus/cert: %d passed, %d failed, %d could not run, "
                "%d disagreed with GnuTLS, %d not parsed by GnuTLS\n",
                passed, failed, couldNotRun, disagreed, skipped);
    EXPECT_EQ(disagreed, 0);
    EXPECT_GT(passed + failed, 50);
}

}  // namespace
