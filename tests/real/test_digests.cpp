// Digests of every algorithm the providers offer, against published vectors, through the
// whole provider path: MakeHash with no provider given, and with one given.
#include "policies/crypt.h"
#include "support/testsupport.h"

#include <cctype>
#include <map>
#include <string>
#include <vector>

using Quorvane::CBlob;
using Quorvane::MakeHash;
using testsupport::hex;
using testsupport::toHex;

namespace {

struct Vector {
    const char* name;
    ALG_ID alg;
    std::vector<uint8_t> message;
    const char* digest;
};

std::vector<uint8_t> ascii(const std::string& s) { return std::vector<uint8_t>(s.begin(), s.end()); }

CBlob blobOf(const std::vector<uint8_t>& v) { return CBlob(v.data(), static_cast<unsigned long>(v.size())); }

std::string lower(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string hexOf(const CBlob& b) { return lower(toHex(b.pbData(), b.cbData())); }

const std::string kAbc = "abc";
const std::string k448 = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
const std::string k896 =
    "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu";
// GOST R 34.11-2012, example 1 (63 digits) and example 2 (72 bytes of CP1251 text).
const std::string kStreebogM1 = "012345678901234567890123456789012345678901234567890123456789012";
const char* kStreebogM2 =
    "d1e520e2e5f2f0e82c20d1f2f0e8e1eee6e820e2edf3f6e82c20e2e5fef2fa20f120eceef0ff20f1f2f0e5ebe0ece820ede020f5"
    "f0e0e1f0fbff20efebfaeafb20c8e3eef0e5e2fb";

std::vector<Vector> vectors() {
    return {
        // RFC 1321
        {"md5_empty", CALG_MD5, {}, "d41d8cd98f00b204e9800998ecf8427e"},
        {"md5_abc", CALG_MD5, ascii(kAbc), "900150983cd24fb0d6963f7d28e17f72"},
        // FIPS 180 examples
        {"sha1_abc", CALG_SHA1, ascii(kAbc), "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"sha1_448", CALG_SHA1, ascii(k448), "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {"sha256_abc", CALG_SHA_256, ascii(kAbc), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"sha256_448", CALG_SHA_256, ascii(k448), "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {"sha384_abc", CALG_SHA_384, ascii(kAbc),
         "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7"},
        {"sha384_896", CALG_SHA_384, ascii(k896),
         "09330c33f71147e83d192fc782cd1b4753111b173b3b05d22fa08086e3b0f712fcc7c71a557e2db966c3e9fa91746039"},
        {"sha512_abc", CALG_SHA_512, ascii(kAbc),
         "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a836ba3c23a3feebbd"
         "454d4423643ce80e2a9ac94fa54ca49f"},
        {"sha512_896", CALG_SHA_512, ascii(k896),
         "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018501d289e4900f7e4331b99dec4b5433a"
         "c7d329eeb6dd26545e96e55b874be909"},
        // GOST R 34.11-94 with the parameter set PKI uses (RFC 4357, 1.2.643.2.2.30.1)
        {"gost94_empty", CALG_GR3411, {}, "981e5f3ca30c841487830f84fb433e13ac1101569b9c13584ac483234cd656c0"},
        {"gost94_abc", CALG_GR3411, ascii(kAbc), "b285056dbf18d7392d7677369524dd14747459ed8143997e163b2986f92fd42c"},
        {"gost94_message_digest", CALG_GR3411, ascii("message digest"),
         "bc6041dd2aa401ebfa6e9886734174febdb4729aa972d60f549ac39b29721ba0"},
        // GOST R 34.11-2012
        {"streebog256_m1", CALG_GR3411_2012_256, ascii(kStreebogM1),
         "9d151eefd8590b89daa6ba6cb74af9275dd051026bb149a452fd84e5e57b5500"},
        {"streebog256_m2", CALG_GR3411_2012_256, hex(kStreebogM2),
         "9dd2fe4e90409e5da87f53976d7405b0c0cac628fc669a741d50063c557e8f50"},
        {"streebog512_m1", CALG_GR3411_2012_512, ascii(kStreebogM1),
         "1b54d01a4af5b9d5cc3d86d68d285462b19abc2475222f35c085122be4ba1ffa00ad30f8767b3a82384c6574f024c311"
         "e2a481332b08ef7f41797891c1646f48"},
        {"streebog512_m2", CALG_GR3411_2012_512, hex(kStreebogM2),
         "1e88e62226bfca6f9994f1f2d51569e0daf8475a3b0fe61a5300eee46d961376035fe83549ada2b8620fcd7c496ce5b3"
         "3f0cb9dddc2b6460143b03dabac9fb28"},
    };
}

void PrintTo(const Vector& v, std::ostream* os) { *os << v.name; }

class DigestVectors : public ::testing::TestWithParam<Vector> {};

TEST_P(DigestVectors, DefaultProviderPath) {
    const Vector& v = GetParam();
    EXPECT_EQ(hexOf(MakeHash(0, v.alg, blobOf(v.message), nullptr)), v.digest);
}

// The same digest when the caller names the provider: the first one, by type, that
// offers the algorithm, found through the search the library itself uses.
TEST_P(DigestVectors, ProviderFromSearch) {
    const Vector& v = GetParam();
    struct Walk : Quorvane::CFindAlgIdInDefaultProviders {
        explicit Walk(ALG_ID a) : CFindAlgIdInDefaultProviders(a) {}
        bool found = false;
        bool OnType(DWORD type, const char* name) override {
            found = !CFindAlgIdInDefaultProviders::OnType(type, name);
            return !found;
        }
    } walk(v.alg);
    ASSERT_EQ(walk.Enum(), S_OK);
    ASSERT_TRUE(walk.found);
    HCRYPTHASH hHash = 0;
    EXPECT_EQ(hexOf(MakeHash(walk.m_hProv, v.alg, blobOf(v.message), &hHash)), v.digest);
    ASSERT_NE(hHash, 0u);
    ALG_ID alg = 0;
    DWORD cb = sizeof alg;
    EXPECT_TRUE(CryptGetHashParam(hHash, HP_ALGID, reinterpret_cast<BYTE*>(&alg), &cb, 0));
    EXPECT_EQ(alg, v.alg);
    EXPECT_TRUE(CryptDestroyHash(hHash));
}

INSTANTIATE_TEST_SUITE_P(Published, DigestVectors, ::testing::ValuesIn(vectors()),
                         [](const ::testing::TestParamInfo<Vector>& i) { return std::string(i.param.name); });

// FIPS 180: one million times "a" exercises many blocks in one CryptHashData call.
TEST(Digests, Sha1MillionA) {
    const std::vector<uint8_t> a(1000000, 'a');
    EXPECT_EQ(hexOf(MakeHash(0, CALG_SHA1, blobOf(a), nullptr)), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

// RFC 5831 gives its examples under the test parameter set; the provider hashes with the
// PKI set of RFC 4357 (1.2.643.2.2.30.1), so those values must not come out.
TEST(Digests, Gost94UsesThePkiParameterSet) {
    const CBlob m = blobOf(ascii("This is message, length=32 bytes"));
    const std::string value = hexOf(MakeHash(0, CALG_GR3411, m, nullptr));
    EXPECT_NE(value, "b1c466d37519b82e8319819ff32595e047a28cb6f83eff1c6916a815a637fffa");
    EXPECT_EQ(value, "2cefc2f7b7bdc514e18ea57fa74ff357e7fa17d652c75f69cb1be7893ede48eb");
}

// The hash handed over by MakeHash answers again with the same value and refuses more data.
TEST(Digests, HandedOverHashIsFinished) {
    HCRYPTHASH hHash = 0;
    const CBlob value = MakeHash(0, CALG_SHA_256, blobOf(ascii(kAbc)), &hHash);
    ASSERT_NE(hHash, 0u);
    BYTE again[32];
    DWORD cb = sizeof again;
    ASSERT_TRUE(CryptGetHashParam(hHash, HP_HASHVAL, again, &cb, 0));
    EXPECT_EQ(lower(toHex(again, cb)), hexOf(value));
    EXPECT_FALSE(CryptHashData(hHash, again, 1, 0));
    EXPECT_EQ(static_cast<HRESULT>(GetLastError()), NTE_BAD_HASH_STATE);
    EXPECT_TRUE(CryptDestroyHash(hHash));
    EXPECT_FALSE(CryptDestroyHash(hHash));
}

TEST(Digests, UnknownAlgorithmFailsInCreateHash) {
    try {
        MakeHash(0, 0x6610, blobOf(ascii(kAbc)), nullptr);  // an encryption algorithm
        FAIL() << "no exception";
    } catch (const ATL::CAtlException& e) {
        EXPECT_EQ(e.m_hr, NTE_BAD_ALGID);
    }
}

TEST(Digests, OidToAlgId) {
    struct Row {
        const char* oid;
        ALG_ID alg;
    } rows[] = {
        {"1.3.14.3.2.26", CALG_SHA1},           {"2.16.840.1.101.3.4.2.1", CALG_SHA_256},
        {"2.16.840.1.101.3.4.2.2", CALG_SHA_384}, {"2.16.840.1.101.3.4.2.3", CALG_SHA_512},
        {"1.2.840.113549.2.5", CALG_MD5},       {"1.2.643.2.2.9", CALG_GR3411},
        {"1.2.643.7.1.1.2.2", CALG_GR3411_2012_256}, {"1.2.643.7.1.1.2.3", CALG_GR3411_2012_512},
        {"1.2.840.113549.1.1.11", CALG_SHA_256}, {"1.2.3.4", 0},
        {"", 0},
    };
    for (const Row& r : rows)
        EXPECT_EQ(CertOIDToAlgId(r.oid), r.alg) << r.oid;
    EXPECT_EQ(CertOIDToAlgId(nullptr), 0u);
}

// ---------------------------------------------------------------- real-world digests

// One definite-length TLV; false at the end or on anything malformed.
struct Tlv {
    uint8_t tag = 0;
    const uint8_t* value = nullptr;
    size_t length = 0;
};

bool readTlv(const uint8_t*& p, const uint8_t* end, Tlv& out) {
    if (end - p < 2)
        return false;
    out.tag = *p++;
    size_t len = *p++;
    if (len & 0x80) {
        const size_t n = len & 0x7F;
        if (n == 0 || n > 4 || static_cast<size_t>(end - p) < n)
            return false;
        len = 0;
        for (size_t i = 0; i < n; ++i)
            len = (len << 8) | *p++;
    }
    if (static_cast<size_t>(end - p) < len)
        return false;
    out.value = p;
    out.length = len;
    p += len;
    return true;
}

// The children of a constructed TLV.
std::vector<Tlv> children(const Tlv& t) {
    std::vector<Tlv> out;
    const uint8_t* p = t.value;
    const uint8_t* end = t.value + t.length;
    Tlv c;
    while (p < end && readTlv(p, end, c))
        out.push_back(c);
    return out;
}

std::string dottedOid(const Tlv& t) {
    std::string s;
    unsigned long arc = 0;
    bool first = true;
    for (size_t i = 0; i < t.length; ++i) {
        arc = (arc << 7) | (t.value[i] & 0x7F);
        if (t.value[i] & 0x80)
            continue;
        if (first) {
            const unsigned long top = arc < 80 ? arc / 40 : 2;
            s = std::to_string(top) + "." + std::to_string(arc - top * 40);
            first = false;
        } else {
            s += "." + std::to_string(arc);
        }
        arc = 0;
    }
    return s;
}

struct Digested {
    std::string alg;
    std::vector<uint8_t> content, digest;
};

// ContentInfo { id-digestedData, [0] DigestedData { version, digestAlgorithm,
// encapContentInfo { type, [0] { OCTET STRING } }, digest } }.
bool readDigestedData(const std::vector<uint8_t>& der, Digested& out) {
    const uint8_t* p = der.data();
    Tlv top;
    if (!readTlv(p, der.data() + der.size(), top) || top.tag != 0x30)
        return false;
    const std::vector<Tlv> ci = children(top);
    if (ci.size() != 2 || ci[0].tag != 0x06 || dottedOid(ci[0]) != "1.2.840.113549.1.7.5" || ci[1].tag != 0xA0)
        return false;
    const std::vector<Tlv> wrapper = children(ci[1]);
    if (wrapper.size() != 1 || wrapper[0].tag != 0x30)
        return false;
    const std::vector<Tlv> dd = children(wrapper[0]);
    if (dd.size() != 4 || dd[1].tag != 0x30 || dd[2].tag != 0x30 || dd[3].tag != 0x04)
        return false;
    const std::vector<Tlv> alg = children(dd[1]);
    const std::vector<Tlv> encap = children(dd[2]);
    if (alg.empty() || alg[0].tag != 0x06 || encap.size() != 2 || encap[1].tag != 0xA0)
        return false;
    const std::vector<Tlv> octets = children(encap[1]);
    if (octets.size() != 1 || octets[0].tag != 0x04)
        return false;
    out.alg = dottedOid(alg[0]);
    out.content.assign(octets[0].value, octets[0].value + octets[0].length);
    out.digest.assign(dd[3].value, dd[3].value + dd[3].length);
    return true;
}

// The DigestedData objects of the corpus carry the digest of their content: SHA-1 from
// two projects, GOST R 34.11-2012 (256) from another.
TEST(Digests, CorpusDigestedData) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    std::map<std::string, size_t> checked;
    for (const char* folder : {"cms", "gost"}) {
        for (const std::string& path : testsupport::corpusFiles(folder)) {
            Digested d;
            if (!readDigestedData(testsupport::readFile(path), d))
                continue;
            const ALG_ID alg = CertOIDToAlgId(d.alg.c_str());
            ASSERT_NE(alg, 0u) << path << " " << d.alg;
            EXPECT_EQ(hexOf(MakeHash(0, alg, blobOf(d.content), nullptr)), lower(toHex(d.digest.data(), d.digest.size())))
                << path;
            ++checked[d.alg];
        }
    }
    EXPECT_GE(checked["1.3.14.3.2.26"], 2u);
    EXPECT_GE(checked["1.2.643.7.1.1.2.2"], 1u);
}

}  // namespace
