// The catalogue over every object of the public corpus, each through the type of its kind:
// it decodes to its end, every open type whose identifier names an object with a value
// type comes out decoded (extensions, attributes, algorithm parameters, contents), DER
// input encodes back byte for byte and BER input to a DER form that is stable. The objects
// the catalogue refuses, as written, are listed with the reason.
#include "asn1data/catalogue.h"
#include "d2_decoded.h"

#include <cstring>
#include <map>

using namespace asn1data;

namespace {

const std::map<std::string, const char*> kTypeOfKind = {
    {"cert", "Certificate"}, {"crl", "CertificateList"}, {"csr", "CertificationRequest"},
    {"attr-cert", "AttributeCertificate"}, {"cms-signed", "ContentInfo"}, {"cms-enveloped", "ContentInfo"},
    {"cms-encrypted", "ContentInfo"}, {"cms-digested", "ContentInfo"}, {"cms-compressed", "ContentInfo"},
    {"cms-data", "ContentInfo"}, {"cms-signerinfo-fragment", "SignerInfo"}, {"ocsp-request", "OCSPRequest"},
    {"ocsp-response", "OCSPResponse"}, {"tsp-request", "TimeStampReq"}, {"tsp-response", "TimeStampResp"},
    {"cmp-message", "PKIMessage"}, {"cmp-header", "PKIHeader"}, {"cmp-fragment", "PKIBody"},
    {"crmf-certreqmessages", "CertReqMessages"}, {"crmf-certrequest", "CertRequest"},
    {"crmf-certtemplate", "CertTemplate"}, {"crmf-fragment", "CertReqMsg"},
};

// Objects the catalogue refuses or cannot give back unchanged, as it is written.
const std::map<std::string, std::pair<int, const char*>> kExpected = {
    {"cert/gnutls/cert-eddsa.der", {0, "critical FALSE written out is decoded and left out on encoding"}},
    {"cert/gnutls/long-oids.der", {0, "identifier arcs are 32 bits wide"}},
    {"cert/gnutls/x509-with-zero-version.der", {0, "a version of -1 reads as a 32-bit unsigned number"}},
    {"cert/asn1crypto/invalid_email_tag.der", {RT_E_TAG_MISMATCH, "emailAddress as UTF8String: a known attribute with a malformed value"}},
    {"cert/gnutls/certs-interesting/cert4.der", {RT_E_TAG_MISMATCH, "a policy identifier written as GraphicString"}},
    {"cert/gnutls/certs-interesting/cert7.der", {RT_E_TAG_MISMATCH, "authority information access under tag 0x53"}},
    {"cert/gnutls/certs-interesting/cert8.der", {RT_E_EXTRA_ELEMENT, "notice numbers in a SET; the -3 deep inside is swallowed"}},
    {"cert/gnutls/certs-interesting/cert9.der", {RT_E_BAD_OBJID, "a URL under the registeredID tag"}},
    {"cert/rustcrypto/026EDA6FA1EDFA8C253936C75B5EEBD954BFF452.fake.der", {RT_E_CONSTRAINT, "a user notice of 224 characters; 1..200"}},
    {"crl/pyhanko/attribute-certs/basic-aa/role-aa-some-revoked.crl", {RT_E_EXTRA_ELEMENT, "onlyContainsAttributeCerts [5]: the issuing distribution point ends at [4]"}},
    {"gost/gnutls/gost-cert-ca.der", {RT_E_MISSING_ELEMENT, "GOST R 34.10-2012 parameters with one identifier; digestParamSet is required"}},
    {"gost/gnutls/gost-cert-new.der", {RT_E_MISSING_ELEMENT, "GOST R 34.10-2012 parameters with one identifier; digestParamSet is required"}},
    {"cms/bc-csharp/cms/sigs/PSSSignDataSHA1.sig", {RT_E_CONSTRAINT, "a certificate with an empty subject alternative name"}},
    {"cms/bc-csharp/cms/sigs/PSSSignDataSHA256Enc.sig", {RT_E_CONSTRAINT, "a certificate with an empty subject alternative name"}},
    {"cms/bc-csharp/cms/sigs/PSSSignDataSHA512.sig", {RT_E_CONSTRAINT, "a certificate with an empty subject alternative name"}},
    {"cms/asn1crypto/pkcs7-signed-digested.der", {RT_E_TAG_MISMATCH, "PKCS #7 content of another type where CMS has an OCTET STRING"}},
    {"cms/bc-csharp/cms/sigs/Pkcs7SignedContent.p7b", {RT_E_TAG_MISMATCH, "PKCS #7 content of another type where CMS has an OCTET STRING"}},
    {"cms/bc-csharp/cms/sigs/SignedMSPkcs7.sig", {RT_E_TAG_MISMATCH, "PKCS #7 content of another type where CMS has an OCTET STRING"}},
    {"cms/gnutls/test2.cat", {RT_E_TAG_MISMATCH, "PKCS #7 content of another type where CMS has an OCTET STRING"}},
    {"cms/rustcrypto/authroot.stl", {RT_E_TAG_MISMATCH, "PKCS #7 content of another type where CMS has an OCTET STRING"}},
    {"cms/rustcrypto/apple_mdm_signature_der.bin", {RT_E_TAG_MISMATCH, "data content as a SEQUENCE, not an OCTET STRING"}},
    {"cms/rustcrypto/signer_info_explicit_attrs.bin", {RT_E_TAG_MISMATCH, "signed attributes under an EXPLICIT tag"}},
    {"cms/rustcrypto/signer_info_sequence_not_set.bin", {RT_E_TAG_MISMATCH, "signed attributes as a SEQUENCE"}},
};
// The X.509 attribute certificate has a subject CHOICE, where the corpus holds the
// later form with a holder SEQUENCE.
const int kAttrCertStatus = RT_E_BAD_CHOICE;

// Counts open types; fails for one whose object has a value type but was left raw.
struct OpenTypeCheck {
    int decoded = 0;
    std::string where;
    void value(const TypeInfo& t, const void* p, const TableInfo* table = nullptr, const ASN1OBJID* key = nullptr) {
        switch (t.kind) {
        case Kind::Alias: value(*t.elem, p, table, key); return;
        case Kind::TableOpen: {
            const Asn1TObject& v = *(const Asn1TObject*)p;
            const ObjectInfo* o = table && key ? typeRegistry().object(table->set, *key) : nullptr;
            if (o && o->value && v.numocts > 0) {
                EXPECT_NE(v.decoded, nullptr) << where << ": " << o->name << " left raw";
                if (v.decoded) value(*o->value, v.decoded);
                ++decoded;
            }
            return;
        }
        case Kind::Sequence:
        case Kind::Set:
            for (const FieldInfo* f = t.fields; f < t.fields + t.nfields; ++f) {
                ASN1UINT m = ~0u;  // the presence word, read only where the field has a bit
                if (f->presentBit >= 0) std::memcpy(&m, (const char*)p + t.mOffset, sizeof m);
                if (!((m >> (f->presentBit & 31)) & 1) || f->type->kind == Kind::Null) continue;
                const ASN1OBJID* k = f->table ? (const ASN1OBJID*)((const char*)p + f->table->keyOffset) : nullptr;
                const bool sibling = f->table && f->table->siblingOffset != ~0u;
                value(sibling ? kBuiltinTableOpen : *f->type, (const char*)p + (sibling ? f->table->siblingOffset : f->offset),
                      f->table, k);
            }
            return;
        case Kind::Choice: {
            const ASN1UINT sel = *(const ASN1UINT*)((const char*)p + t.mOffset);
            const void* up = (const char*)p + t.uOffset;
            if (sel >= 1 && sel <= t.nfields && t.fields[sel - 1].type->kind != Kind::Null)
                value(*t.fields[sel - 1].type, t.fields[sel - 1].byPointer ? *(const void* const*)up : up);
            return;
        }
        case Kind::List:
            for (const Asn1RTDListNode* n = ((const Asn1RTDList*)p)->head; n; n = n->next)
                value(*t.elem, n->data, table, key);
            return;
        default: return;
        }
    }
};

TEST(CatalogueCorpus, EveryObjectThroughTheTypeOfItsKind) {
    CHAINVET_SKIP_WITHOUT_CORPUS();
    const std::string root = testsupport::corpusDir() + "/";
    int total = 0, refused = 0;
    OpenTypeCheck check;
    for (const auto& k : kTypeOfKind) {
        const TypeInfo* type = typeRegistry().find(k.second);
        ASSERT_NE(type, nullptr) << k.second;
        for (const std::string& path : testsupport::corpusByKind(k.first, true)) {
            const std::string name = path.substr(root.size());
            const std::vector<uint8_t> der = testsupport::readFile(path);
            check.where = name;
            d2test::Decoded o(type, testsupport::toHex(der.data(), der.size()));
            // Malformed objects end in a status or a value, never in a crash or a read past the end.
            if (name.find("/bad/") != std::string::npos) {
                refused += o.status != 0;
                continue;
            }
            const size_t consumed = o.dec.at();  // before the context turns to encoding
            if (o.status == 0) check.value(*o.info, o.value);
            const std::string out = o.status == 0 ? o.reencoded() : "";
            auto expected = kExpected.find(name);
            if (expected != kExpected.end() || k.first == "attr-cert") {
                EXPECT_EQ(o.status, expected != kExpected.end() ? expected->second.first : kAttrCertStatus) << name;
                EXPECT_FALSE(o.status == 0 && out == bertest::lowerHex(der.data(), der.size())) << name << " now comes back unchanged";
                continue;
            }
            ASSERT_EQ(o.status, 0) << name;
            // Trailing octets after the value (a line feed in one file) are no part of it.
            EXPECT_LE(der.size() - consumed, 1u) << name << ": decoded to its end";
            ++total;
            if (out == bertest::lowerHex(der.data(), consumed)) continue;
            // BER: the DER form the encoder wrote decodes and encodes to itself.
            EXPECT_EQ(der[1], 0x80) << name << ": only indefinite-length input may change";
            d2test::Decoded again(type, out);
            EXPECT_EQ(again.status == 0 ? again.reencoded() : "", out) << name << ": the DER form is stable";
        }
    }
    EXPECT_GT(total, 300);
    EXPECT_GT(refused, 0);
    EXPECT_GT(check.decoded, 3000);
}

}  // namespace
