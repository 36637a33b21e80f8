// Digests of every algorithm the providers offer, against published vectors, through the
// whole provider path: MakeHash with no provider given, and with one given.
#include "policies/crypt.h"
#include "support/testsupport.h"

#include <map>
#include <string>
#include <vector>

using Quorvane::CBlob;
using Quorvane::MakeHash;
using testsupport::blobOf;
using testsupport::hex;
using testsupport::hexOf;

namespace {

std::vector<uint8_t> ascii(const std::string& s) { return std::vector<uint8_t>(s.begin(), s.end()); }

// One published vector per algorithm, several blocks long where the source gives one.
TEST(Digests, PublishedVectors) {
    const std::string k448 = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    const std::string k896 = "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu";
    // GOST R 34.11-2012, example 2: 72 bytes of CP1251 text.
    const std::vector<uint8_t> streebogM2 = hex("d1e520e2e5f2f0e82c20d1f2f0e8e1eee6e820e2edf3f6e82c20e2e5fef2fa20f120eceef0ff20f1f2f0e5ebe0ece820ede020f5f0e0e1f0fbff20efebfaeafb20c8e3eef0e5e2fb");
    const std::tuple<ALG_ID, std::vector<uint8_t>, std::string> rows[] = {
        {CALG_MD5, {}, "D41D8CD98F00B204E9800998ECF8427E"},  // RFC 1321, the empty message
        // FIPS 180: one million times "a" passes many blocks in one CryptHashData call.
        {CALG_SHA1, std::vector<uint8_t>(1000000, 'a'), "34AA973CD4C4DAA4F61EEB2BDBAD27316534016F"},
        {CALG_SHA_256, ascii(k448), "248D6A61D20638B8E5C026930C3E6039A33CE45964FF2167F6ECEDD419DB06C1"},
        {CALG_SHA_384, ascii(k896), "09330C33F71147E83D192FC782CD1B4753111B173B3B05D22FA08086E3B0F712FCC7C71A557E2DB966C3E9FA91746039"},
        {CALG_SHA_512, ascii(k896), "8E959B75DAE313DA8CF4F72814FC143F8F7779C6EB9F7FA17299AEADB6889018501D289E4900F7E4331B99DEC4B5433AC7D329EEB6DD26545E96E55B874BE909"},
        // GOST R 34.11-94 under the parameter set PKI uses (RFC 4357, 1.2.643.2.2.30.1), not
        // the test set RFC 5831 gives its examples under (b1c466d3... for this message).
        {CALG_GR3411, ascii("This is message, length=32 bytes"), "2CEFC2F7B7BDC514E18EA57FA74FF357E7FA17D652C75F69CB1BE7893EDE48EB"},
        {CALG_GR3411_2012_256, streebogM2, "9DD2FE4E90409E5DA87F53976D7405B0C0CAC628FC669A741D50063C557E8F50"},
        {CALG_GR3411_2012_512, streebogM2, "1E88E62226BFCA6F9994F1F2D51569E0DAF8475A3B0FE61A5300EEE46D961376035FE83549ADA2B8620FCD7C496CE5B33F0CB9DDDC2B6460143B03DABAC9FB28"},
    };
    for (const auto& [alg, message, digest] : rows) {
        SCOPED_TRACE(alg);
        EXPECT_EQ(hexOf(MakeHash(0, alg, blobOf(message), nullptr)), digest);
        // The same with the provider named: the first one, by type, that offers the
        // algorithm, found through the search the library itself uses. The handed-over
        // hash is finished: it answers again and refuses more data.
        struct Walk : Quorvane::CFindAlgIdInDefaultProviders {
            using CFindAlgIdInDefaultProviders::CFindAlgIdInDefaultProviders;
            bool found = false;
            bool OnType(DWORD type, const char* name) override {
                return !(found = !CFindAlgIdInDefaultProviders::OnType(type, name));
            }
        } walk(alg);
        ASSERT_TRUE(walk.Enum() == S_OK && walk.found);
        HCRYPTHASH hHash = 0;
        EXPECT_EQ(hexOf(MakeHash(walk.m_hProv, alg, blobOf(message), &hHash)), digest);
        ALG_ID alg = 0;
        BYTE again[64];
        DWORD cbAlg = sizeof alg, cb = sizeof again;
        ASSERT_TRUE(CryptGetHashParam(hHash, HP_ALGID, reinterpret_cast<BYTE*>(&alg), &cbAlg, 0) &&
                    CryptGetHashParam(hHash, HP_HASHVAL, again, &cb, 0));
        EXPECT_EQ(std::make_pair(alg, testsupport::toHex(again, cb)), std::make_pair(alg, digest));
        EXPECT_FALSE(CryptHashData(hHash, again, 1, 0));
        EXPECT_EQ(static_cast<HRESULT>(GetLastError()), NTE_BAD_HASH_STATE);
        EXPECT_TRUE(CryptDestroyHash(hHash));
        EXPECT_FALSE(CryptDestroyHash(hHash));
    }
    EXPECT_EQ(testsupport::thrownHr([] { MakeHash(0, 0x6610, blobOf(ascii("abc")), nullptr); }),  // no hash
              NTE_BAD_ALGID);
}

// The provider walk over the stand-in's own providers, by name and type in table order;
// the walk's start size is 256, longer than every name, so no retry is needed.
TEST(Digests, ProvidersEnumerateInOrder) {
    struct Names : ATL2::CCryptProvidersEnumT<char> {
        std::string seen;
        bool OnProv(const char* name, DWORD type) override {
            seen += std::string(name) + "/" + std::to_string(type) + ";";
            return true;
        }
    } names;
    EXPECT_EQ(names.Enum(), S_OK);
    EXPECT_EQ(names.seen, "Quorvane Base RSA Provider/1;Quorvane Enhanced RSA and AES Provider/24;"
                          "Quorvane GOST Provider/75;");
}

TEST(Digests, OidToAlgId) {
    const std::pair<const char*, ALG_ID> rows[] = {
        {"1.3.14.3.2.26", CALG_SHA1}, {"2.16.840.1.101.3.4.2.1", CALG_SHA_256}, {"1.2.840.113549.2.5", CALG_MD5},
        {"2.16.840.1.101.3.4.2.2", CALG_SHA_384}, {"2.16.840.1.101.3.4.2.3", CALG_SHA_512}, {"1.2.3.4", 0},
        {"1.2.643.2.2.9", CALG_GR3411}, {"1.2.643.7.1.1.2.2", CALG_GR3411_2012_256}, {nullptr, 0}, {"", 0},
        {"1.2.643.7.1.1.2.3", CALG_GR3411_2012_512}, {"1.2.840.113549.1.1.11", CALG_SHA_256}};
    for (const auto& [oid, alg] : rows)
        EXPECT_EQ(CertOIDToAlgId(oid), alg) << (oid ? oid : "null");
}

// The hex of the contents at a path of (index, tag) steps through nested elements (one
// identifier octet, definite lengths); empty if there is no such element.
std::string at(const std::vector<uint8_t>& der, std::initializer_list<std::pair<int, uint8_t>> path) {
    const uint8_t* p = der.data();
    size_t n = der.size();
    for (const auto& [index, tag] : path) {
        for (int i = 0;; ++i) {
            size_t len = n >= 2 ? p[1] : 0, head = 2;
            if (n < 2 || len == 0x80 || len > 0x84 || (len > 0x80 && n < len - 0x7E))
                return "";
            if (len & 0x80)
                for (len = 0; head < size_t(p[1] - 0x7E); ++head)
                    len = len << 8 | p[head];
            if (n - head < len || (i == index && p[0] != tag))
                return "";
            if (i == index) {
                p += head, n = len;
                break;
            }
            p += head + len, n -= head + len;
        }
    }
    return testsupport::toHex(p, n);
}

// The DigestedData objects of the corpus carry the digest of their content: SHA-1 from
// two projects, GOST R 34.11-2012 (256) from another. ContentInfo { id-digestedData,
// [0] DigestedData { version, digestAlgorithm, encapContentInfo { type, [0] OCTET STRING }, digest } }
TEST(Digests, CorpusDigestedData) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    const std::map<std::string, ALG_ID> algorithms = {{"2B0E03021A", CALG_SHA1},
                                                      {"2A85030701010202", CALG_GR3411_2012_256}};
    std::map<ALG_ID, size_t> checked;
    for (const char* folder : {"cms", "gost"}) {
        for (const std::string& path : testsupport::corpusFiles(folder)) {
            const std::vector<uint8_t> der = testsupport::readFile(path);
            if (at(der, {{0, 0x30}, {0, 0x06}}) != "2A864886F70D010705")
                continue;
            const auto a = algorithms.find(at(der, {{0, 0x30}, {1, 0xA0}, {0, 0x30}, {1, 0x30}, {0, 0x06}}));
            const std::string content = at(der, {{0, 0x30}, {1, 0xA0}, {0, 0x30}, {2, 0x30}, {1, 0xA0}, {0, 0x04}});
            ASSERT_NE(a, algorithms.end()) << path;
            EXPECT_EQ(hexOf(MakeHash(0, a->second, blobOf(hex(content)), nullptr)),
                      at(der, {{0, 0x30}, {1, 0xA0}, {0, 0x30}, {3, 0x04}}))
                << path;
            ++checked[a->second];
        }
    }
    EXPECT_GE(checked[CALG_SHA1], 2u);
    EXPECT_GE(checked[CALG_GR3411_2012_256], 1u);
}

}  // namespace
