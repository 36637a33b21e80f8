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
    PCCERT_CONTEXT ctx = nullptr;
    explicit Cert(const std::string& path) : ctx(QVCertLoadFile(path.c_str())) {}
    Cert(const uint8_t* p, size_t n)
        : ctx(CertCreateCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, p, static_cast<DWORD>(n))) {}
    ~Cert() {
        if (ctx)
            CertFreeCertificateContext(ctx);
    }
};

struct Chain {
    PCCERT_CHAIN_CONTEXT chain;
    explicit Chain(std::vector<PCCERT_CONTEXT> certs)
        : chain(QVCertBuildChain(certs.data(), static_cast<DWORD>(certs.size()))) {}
    ~Chain() { QVCertFreeChain(chain); }
};

std::string fixture(const char* name) { return std::string(CHAINVET_FIXTURES_DIR) + "/pki/" + name + ".der"; }

struct Result {
    BOOL ok;
    DWORD dwError;
    DWORD lastError;
};

Result caCheck(PCCERT_CHAIN_CONTEXT chain) {
    CERT_CHAIN_POLICY_PARA para{sizeof para, BASIC_CONSTRAINTS_CERT_CHAIN_POLICY_CA_FLAG, nullptr};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, nullptr};
    SetLastError(0);
    BOOL ok = CertDllVerifyBasicConstraintsCertificateChainPolicy(CERT_CHAIN_POLICY_BASIC_CONSTRAINTS, chain,
                                                                  &para, &status);
    return {ok, status.dwError, GetLastError()};
}

TEST(BasicConstraintsReal, Fixtures) {
    Cert root(fixture("root")), intermediate(fixture("intermediate")), leaf(fixture("leaf")),
        leafNoBc(fixture("leaf-nobc")), rootNoBc(fixture("root-nobc")), both(fixture("both-bc")),
        old(fixture("old-bc"));
    for (const Cert* c : {&root, &intermediate, &leaf, &leafNoBc, &rootNoBc, &both, &old})
        ASSERT_NE(c->ctx, nullptr);

    const struct {
        const char* name;
        std::vector<PCCERT_CONTEXT> chain;
        DWORD dwError;
    } cases[] = {
        {"CA with cA TRUE", {intermediate.ctx, root.ctx}, 0},
        {"root CA alone", {root.ctx}, 0},
        {"leaf with cA FALSE", {leaf.ctx, intermediate.ctx, root.ctx}, 0x80096019u},
        {"self-signed root without the extension", {rootNoBc.ctx}, 0},
        {"two elements, end certificate without the extension", {leafNoBc.ctx, intermediate.ctx}, 0x80096019u},
        {"partial chain without the extension", {leafNoBc.ctx}, 0x80096019u},
        {"both 2.5.29.19 (cA FALSE) and 2.5.29.10", {both.ctx, root.ctx}, 0x80096019u},
        {"only 2.5.29.10, read by the current rule", {old.ctx, root.ctx}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Chain chain(c.chain);
        Result r = caCheck(chain.chain);
        EXPECT_EQ(r.ok, TRUE);
        EXPECT_EQ(r.dwError, c.dwError);
    }
    Chain partial({leafNoBc.ctx});
    EXPECT_TRUE(partial.chain->TrustStatus.dwErrorStatus & CERT_TRUST_IS_PARTIAL_CHAIN);
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
        if (gnutls_x509_crt_import(crt, &d, GNUTLS_X509_FMT_DER) < 0) {
            gnutls_x509_crt_deinit(crt);
            ++skipped;
            continue;
        }
        unsigned int critical = 0;
        int pathLen = 0;
        unsigned int ca = 0;
        int rc = gnutls_x509_crt_get_basic_constraints(crt, &critical, &ca, &pathLen);
        gnutls_x509_crt_deinit(crt);

        Cert cert(der.data(), der.size());
        if (cert.ctx == nullptr) {
            ++disagreed;
            ADD_FAILURE() << path << ": GnuTLS parses it, the stand-in does not";
            continue;
        }
        PCERT_INFO info = cert.ctx->pCertInfo;
        bool hasOld = CertFindExtension("2.5.29.10", info->cExtension, info->rgExtension) != nullptr;
        Chain chain({cert.ctx});
        Result r = caCheck(chain.chain);

        bool expectCa;
        if (rc >= 0) {
            expectCa = ca != 0;
        } else if (rc == GNUTLS_E_REQUESTED_DATA_NOT_AVAILABLE && !hasOld) {
            expectCa = (chain.chain->TrustStatus.dwErrorStatus & CERT_TRUST_IS_PARTIAL_CHAIN) == 0;
        } else {
            // GnuTLS cannot read the value (or it is only the old extension): the policy must
            // not pass it as a CA without a readable extension saying so.
            if (!r.ok)
                ++couldNotRun;
            else if (r.dwError)
                ++failed;
            else
                ++passed;
            continue;
        }
        bool gotCa = r.ok && r.dwError == 0;
        if (!r.ok) {
            ++couldNotRun;
        } else if (gotCa) {
            ++passed;
        } else {
            ++failed;
        }
        if (gotCa != expectCa) {
            ++disagreed;
            ADD_FAILURE() << path << ": policy " << (gotCa ? "CA" : "not CA") << ", GnuTLS "
                          << (expectCa ? "CA" : "not CA");
        }
    }
    std::printf("[ corpus   ] basic constraints over corpus/cert: %d passed, %d failed, %d could not run, "
                "%d disagreed with GnuTLS, %d not parsed by GnuTLS\n",
                passed, failed, couldNotRun, disagreed, skipped);
    EXPECT_EQ(disagreed, 0);
    EXPECT_GT(passed + failed, 50);
}

}  // namespace
