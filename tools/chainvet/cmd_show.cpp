// chainvet show: a certificate, revocation list, OCSP response, time-stamp reply or CMS
// signed message printed through the object model, field by field, as a person reads it.
#include "command.h"
#include "catalogue_read.h"
#include "common.h"

#include "asn1data/describe.h"
#include "pki/cms_values.h"
#include "pki/dist_point.h"
#include "pki/extension.h"
#include "pki/pki_status.h"
#include "pki/policy_access.h"
#include "pki/signed_attrs.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using namespace chainvet_tool;
using namespace Quorvane::ASN1;
using Quorvane::CBlob;
namespace ad = asn1data;

namespace {

const char* kHelp =
    "usage: chainvet show [--type NAME] FILE\n\n"
    "Prints a certificate, CRL, OCSP response, time-stamp response or token, or CMS signed\n"
    "message as the library's object model reads it: names as text (RDNs joined by \",\"),\n"
    "serial numbers as \"0x\" and hexadecimal, times as generalized time, each extension by\n"
    "its meaning (alternative names, distribution points, policies, authority information\n"
    "access, CRL entry reasons; key usage, basic constraints and key identifiers from the\n"
    "catalogue's decoded value; any other as hexadecimal), signer infos with their signed\n"
    "attributes, and each single response of an OCSP reply. FILE is DER, BER or PEM.\n"
    "Without --type the kind is found as \"chainvet dump\" finds it.\n\n"
    "  --type NAME   decode as this catalogue type (Certificate, CertificateList,\n"
    "                OCSPResponse, BasicOCSPResponse, TimeStampResp, ContentInfo, SignedData)\n\n"
    "Exit status: 0 shown, 1 refused by the decoder (status and its name are printed),\n"
    "2 the file could not be read, 64 bad usage.\n";

int run(const std::vector<std::string>& args);

const Command kCommand{"show", "print a certificate, CRL, OCSP or CMS object as text", kHelp, run};
Registrar s_register(kCommand);

const char* const kTopLevel[] = {"Certificate", "CertificateList", "CertificationRequest",
                                 "ContentInfo", "OCSPResponse", "OCSPRequest", "TimeStampResp",
                                 "TimeStampReq", "PKIMessage"};

const ad::TypeRegistry& reg() { return ad::typeRegistry(); }

// ---- Text pieces --------------------------------------------------------------------------------

std::string hex(const unsigned char* data, size_t size, size_t limit = 64) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string out;
    for (size_t i = 0; i < size && i < limit; ++i) {
        if (i) out += ':';
        out += kDigits[data[i] >> 4];
        out += kDigits[data[i] & 15];
    }
    if (size > limit) out += ":... (" + std::to_string(size) + " octets)";
    return out;
}
std::string hex(const CBlob& b) { return hex(b.pbData(), b.cbData()); }

std::string errorText(const ATL::CAtlException& e) { return describeError(static_cast<DWORD>(e.m_hr)); }

std::string utf8(const wchar_t* text) {
    const int size = WideCharToMultiByte(0, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return std::string();
    std::vector<char> out(static_cast<size_t>(size));
    WideCharToMultiByte(0, 0, text, -1, out.data(), size, nullptr, nullptr);
    return std::string(out.data());
}

// "name (dotted)" when the catalogue has a constant of that value.
std::string oidText(const ASN1OBJID& oid) {
    const std::string dotted = toOID(oid).c_str();
    const char* name = reg().oidName(oid);
    return name && *name ? std::string(name) + " (" + dotted + ")" : dotted;
}
std::string oidText(const char* dotted) {
    ASN1OBJID oid;
    if (str2oid(dotted, &oid) != 0) return dotted;
    return oidText(oid);
}

std::string nameText(const CName& name) {
    try {
        return utf8(name.toString().c_str());
    } catch (const ATL::CAtlException& e) {
        return "(no text form, " + errorText(e) + ")";
    } catch (const std::exception& e) {
        return std::string("(no text form, ") + e.what() + ")";
    }
}
std::string nameText(const ad::ASN1T_Name& src) {
    CName name;
    try {
        ASN1T_Name_traits::get(src, name);
    } catch (const ATL::CAtlException& e) {
        return "(not read, " + errorText(e) + ")";
    }
    return nameText(name);
}
std::string nameText(const CBlob& encoded) {
    CName name;
    try {
        name.decode(encoded);
    } catch (const ATL::CAtlException& e) {
        return "(not decoded, " + errorText(e) + ")";
    }
    return nameText(name);
}

std::string ipText(const CBlob& address) {
    const unsigned char* p = address.pbData();
    char part[8];
    std::string out;
    if (address.cbData() == 4 || address.cbData() == 8) {
        for (unsigned long i = 0; i < address.cbData(); ++i) {
            std::snprintf(part, sizeof part, "%u", p[i]);
            out += (i == 0 ? "" : i == 4 ? "/" : ".") + std::string(part);
        }
        return out;
    }
    if (address.cbData() != 16 && address.cbData() != 32) return hex(address);
    for (unsigned long i = 0; i < address.cbData(); i += 2) {
        std::snprintf(part, sizeof part, "%X", (p[i] << 8) | p[i + 1]);
        out += (i == 0 ? "" : i == 16 ? "/" : ":") + std::string(part);
    }
    return out;
}

// From the getters, not toString(): toString() writes one character of a text name and has
// no form for an address.
std::string generalNameText(const CGeneralName& name) {
    try {
        switch (name.get_type()) {
        case CGeneralName::rfc822Name: return "email:" + utf8(name.get_rfc822Name());
        case CGeneralName::dNSName: return "DNS:" + utf8(name.get_dNSName());
        case CGeneralName::uniformResourceIdentifier: return "URI:" + utf8(name.get_uniformResourceIdentifier());
        case CGeneralName::registeredID: return "Registered ID:" + utf8(name.get_registeredID());
        case CGeneralName::iPAddress: return "IP Address:" + ipText(*name.get_iPAddress());
        case CGeneralName::directoryName: {
            // A decoded iPAddress is held as a directory name: the address bytes, no Name.
            const CBlob& bytes = *name.get_directoryName();
            if (bytes.cbData() > 0 && bytes.pbData()[0] == 0x30) return "DirName:" + nameText(bytes);
            return "IP Address:" + ipText(bytes);
        }
        default: return "(general name of type " + std::to_string(name.get_type()) + ")";
        }
    } catch (const ATL::CAtlException& e) {
        return "(no text form, " + errorText(e) + ")";
    }
}

std::string serialText(const char* asn1Text) {
    if (asn1Text == nullptr) return "(absent)";
    try {
        CBigInteger value;
        ASN1StringToBigInteger(asn1Text, value);
        CBlob text;
        BigIntegerToString(value, text);
        return std::string(reinterpret_cast<const char*>(text.pbData()));
    } catch (const ATL::CAtlException& e) {
        return std::string(asn1Text) + " (" + errorText(e) + ")";
    }
}
std::string serialText(const CBigInteger& value) {
    try {
        CBlob text;
        BigIntegerToString(value, text);
        return std::string(reinterpret_cast<const char*>(text.pbData()));
    } catch (const ATL::CAtlException& e) {
        return "(" + errorText(e) + ")";
    }
}

std::string timeText(const ad::ASN1T_Time& src) {
    try {
        CTimeChoice time;
        ASN1T_Time_traits::get(src, time);
        if (const Quorvane::CDateTime* t = time.get_time()) return t->getGeneralizedTime().c_str();
    } catch (const ATL::CAtlException& e) {
        // A date the library cannot hold (a year past its range, a bad field) as written.
        const char* text = src.t == 1 ? src.u.utcTime : src.u.generalTime;
        return std::string(text ? text : "") + " (as written; not read, " + errorText(e) + ")";
    }
    return "(absent)";
}
std::string timeText(const char* generalized) { return generalized ? generalized : "(absent)"; }

std::string algorithmText(const ad::ASN1T_AlgorithmIdentifier& src) {
    CAlgorithmIdentifier alg;
    try {
        ASN1T_AlgorithmIdentifier_traits::get(src, alg);
    } catch (const ATL::CAtlException& e) {
        return "(not read, " + errorText(e) + ")";
    }
    return oidText(alg.get_algorithm());
}

// RFC 5280 CRLReason.
std::string reasonText(unsigned reason) {
    static const char* const kNames[] = {"unspecified",          "keyCompromise",   "cACompromise",
                                         "affiliationChanged",   "superseded",      "cessationOfOperation",
                                         "certificateHold",      "(7)",             "removeFromCRL",
                                         "privilegeWithdrawn",   "aACompromise"};
    return reason < 11 ? kNames[reason] : std::to_string(reason);
}

// Every line of a multi-line text under the given indent.
void printIndented(const std::string& text, const char* indent) {
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::printf("%s%s\n", indent, text.substr(start, end - start).c_str());
        start = end + 1;
    }
}

// ---- Decoding by the catalogue ------------------------------------------------------------------

// One value decoded on the shared context; its memory lives in the context's heap.
// The value of an inner encoding (extension value, open type, OCTET STRING) as a catalogue
// type, or null with a line saying why.
template <class T>
const T* decodeInner(ASN1CTXT* ctxt, const char* typeName, const unsigned char* data, size_t size,
                     const char* indent) {
    const ad::TypeInfo* type = reg().find(typeName);
    if (type == nullptr) {
        std::printf("%s(no %s in the catalogue)\n", indent, typeName);
        return nullptr;
    }
    const Decoded d = decodeAs(ctxt, *type, data, size);
    if (d.status != 0) {
        std::printf("%s%s: refused, status %s, at octet %u\n", indent, typeName, statusText(d.status).c_str(),
                    d.consumed);
        return nullptr;
    }
    return static_cast<const T*>(d.value);
}

template <class T, class F>
void forEach(const Asn1RTDList& list, F f) {
    for (const Asn1RTDListNode* n = list.head; n != nullptr; n = n->next) f(*static_cast<const T*>(n->data));
}

// ---- Extensions ---------------------------------------------------------------------------------

void printKeyUsage(const ad::ASN1T_KeyUsage& usage, const std::string& in) {
    static const char* const kBits[] = {"Digital Signature", "Non Repudiation", "Key Encipherment",
                                        "Data Encipherment", "Key Agreement",   "Certificate Sign",
                                        "CRL Sign",          "Encipher Only",   "Decipher Only"};
    std::string text;
    for (unsigned bit = 0; bit < usage.numbits && bit < 9; ++bit)
        if (usage.data[bit / 8] & (0x80 >> (bit % 8))) text += (text.empty() ? "" : ", ") + std::string(kBits[bit]);
    std::printf("%s%s\n", in.c_str(), text.empty() ? "(none)" : text.c_str());
}

void printGeneralNames(const CGeneralNames& names, const char* indent) {
    for (const CGeneralName& n : names) std::printf("%s%s\n", indent, generalNameText(n).c_str());
}

void printExtensionValue(ASN1CTXT* ctxt, const CExtension& ext, const std::string& indent) {
    const std::string oid = ext.get_oid();
    const CBlob& value = ext.get_value();
    const std::string inner = indent + "        ", more = inner + "    ";
    const char* in = inner.c_str();
    if (oid == "2.5.29.15") {
        if (const auto* usage = decodeInner<ad::ASN1T_KeyUsage>(ctxt, "KeyUsage", value.pbData(), value.cbData(), in))
            printKeyUsage(*usage, inner);
    } else if (oid == "2.5.29.19") {
        if (const auto* bc = decodeInner<ad::ASN1T_BasicConstraintsSyntax>(ctxt, "BasicConstraintsSyntax",
                                                                          value.pbData(), value.cbData(), in)) {
            std::printf("%sCA:%s", in, bc->cA ? "TRUE" : "FALSE");
            if (bc->m.pathLenConstraintPresent) std::printf(", pathlen:%u", bc->pathLenConstraint);
            std::printf("\n");
        }
    } else if (oid == "2.5.29.17" || oid == "2.5.29.18") {
        CGeneralNames names;
        asn1Decode<ASN1T_GeneralNames_traits>(value, names);
        printGeneralNames(names, in);
    } else if (oid == "2.5.29.31" || oid == "2.5.29.46") {
        CCRLDistPointsSyntax points;
        points.decode(value);
        for (const CDistributionPoint& p : points) {
            const CDistributionPointName* dp = p.get_distributionPoint();
            if (dp && dp->get_fullName()) {
                std::printf("%sFull Name:\n", in);
                printGeneralNames(*dp->get_fullName(), more.c_str());
            } else if (dp) {
                std::printf("%sName relative to the CRL issuer\n", in);
            }
            if (p.get_reasons()) std::printf("%sReasons: 0x%X\n", in, p.get_reasons()->get_value());
            if (p.get_cRLIssuer()) {
                std::printf("%sCRL Issuer:\n", in);
                printGeneralNames(*p.get_cRLIssuer(), more.c_str());
            }
        }
    } else if (oid == "1.3.6.1.5.5.7.1.1" || oid == "1.3.6.1.5.5.7.1.11") {
        CAuthorityInfoAccessSyntax access;
        access.decode(value);
        for (const CAccessDescription& a : access)
            std::printf("%s%s - %s\n", in, oidText(a.get_accessMethod()).c_str(),
                        generalNameText(a.get_accessLocation()).c_str());
    } else if (oid == "2.5.29.32") {
        CPolicyInformationList policies;
        asn1Decode<ASN1T_CertificatePoliciesSyntax_traits>(value, policies);
        for (const CPolicyInformation& p : policies)
            std::printf("%sPolicy: %s\n", in, oidText(p.get_policyIdentifier()).c_str());
    } else if (oid == "2.5.29.21") {
        CExtCRLReason reason(value);
        reason.decode();
        std::printf("%s%s\n", in, reasonText(reason.get_reason()).c_str());
    } else if (oid == "2.5.29.24") {
        CExtInvalidityDate date(value);
        date.decode();
        std::printf("%s%s\n", in, date.get_invalidityDate().getGeneralizedTime().c_str());
    } else if (oid == "2.5.29.29") {
        CExtCertificateIssuer issuer(value);
        issuer.decode();
        printGeneralNames(issuer.get_issuer(), in);
    } else if (oid == "2.5.29.16") {
        CExtPrivateKeyUsagePeriod period(value);
        period.decode();
        if (period.get_notBefore()) std::printf("%sNot Before: %s\n", in, period.get_notBefore()->getGeneralizedTime().c_str());
        if (period.get_notAfter()) std::printf("%sNot After : %s\n", in, period.get_notAfter()->getGeneralizedTime().c_str());
    } else {
        // Any other extension the catalogue knows (key identifiers, CRL numbers, ...) as the
        // tree of its decoded value.
        ASN1OBJID id;
        const ad::ObjectInfo* object = str2oid(oid.c_str(), &id) == 0 ? reg().object("ExtensionSet", id) : nullptr;
        if (object && object->value) {
            const Decoded d = decodeAs(ctxt, *object->value, value.pbData(), value.cbData());
            if (d.status == 0) {
                printIndented(ad::describeValue(reg(), *object->value, d.value, ad::DescribeForm::Text), in);
                return;
            }
            std::printf("%srefused, status %s, at octet %u\n", in, statusText(d.status).c_str(), d.consumed);
        }
        std::printf("%s%s\n", in, hex(value).c_str());
    }
}

void printExtensions(ASN1CTXT* ctxt, const ad::ASN1T_Extensions& src, const char* title, const char* indent) {
    CExtensions exts;
    try {
        ASN1T_Extensions_traits::get(src, exts);
    } catch (const ATL::CAtlException& e) {
        std::printf("%s%s: not read, %s\n", indent, title, errorText(e).c_str());
        return;
    }
    std::printf("%s%s:\n", indent, title);
    for (const CExtension& ext : exts) {
        std::printf("%s    %s%s:\n", indent, oidText(ext.get_oid()).c_str(), ext.get_critical() ? " critical" : "");
        try {
            printExtensionValue(ctxt, ext, indent);
        } catch (const ATL::CAtlException& e) {
            // The object model refuses some general names (otherName, x400Address); the
            // catalogue's tree still shows them.
            const std::string oid = ext.get_oid();
            const ad::TypeInfo* names = oid == "2.5.29.17" || oid == "2.5.29.18" ? reg().find("GeneralNames") : nullptr;
            const std::string in = std::string(indent) + "        ";
            std::printf("%snot read by the object model, %s\n", in.c_str(), errorText(e).c_str());
            const void* tree = names ? decodeInner<void>(ctxt, "GeneralNames", ext.get_value().pbData(),
                                                         ext.get_value().cbData(), in.c_str())
                                     : nullptr;
            if (tree)
                printIndented(ad::describeValue(reg(), *names, tree, ad::DescribeForm::Text), in.c_str());
            else
                std::printf("%s%s\n", in.c_str(), hex(ext.get_value()).c_str());
        }
    }
}

// ---- The kinds ----------------------------------------------------------------------------------

void showCertificate(ASN1CTXT* ctxt, const ad::ASN1T_Certificate& cert) {
    const ad::ASN1T_TBSCertificate& tbs = cert.toBeSigned;
    std::printf("Certificate:\n");
    std::printf("    Version: %u\n", tbs.m.versionPresent ? static_cast<unsigned>(tbs.version) + 1 : 1u);
    std::printf("    Serial Number: %s\n", serialText(tbs.serialNumber).c_str());
    std::printf("    Signature Algorithm: %s\n", algorithmText(tbs.signature).c_str());
    std::printf("    Issuer: %s\n", nameText(tbs.issuer).c_str());
    std::printf("    Validity:\n        Not Before: %s\n        Not After : %s\n", timeText(tbs.validity.notBefore).c_str(),
                timeText(tbs.validity.notAfter).c_str());
    std::printf("    Subject: %s\n", nameText(tbs.subject).c_str());
    std::printf("    Public Key Algorithm: %s\n", algorithmText(tbs.subjectPublicKeyInfo.algorithm).c_str());
    if (tbs.m.extensionsPresent) printExtensions(ctxt, tbs.extensions, "Extensions", "    ");
    std::printf("    Signature: %s, %u bits\n", algorithmText(cert.algorithm).c_str(), cert.signature.numbits);
}

void showCrl(ASN1CTXT* ctxt, const ad::ASN1T_CertificateList& crl) {
    const ad::ASN1T_TBSCertList& tbs = crl.toBeSigned;
    std::printf("Certificate Revocation List:\n");
    std::printf("    Version: %u\n", tbs.m.versionPresent ? static_cast<unsigned>(tbs.version) + 1 : 1u);
    std::printf("    Signature Algorithm: %s\n", algorithmText(tbs.signature).c_str());
    std::printf("    Issuer: %s\n", nameText(tbs.issuer).c_str());
    std::printf("    This Update: %s\n", timeText(tbs.thisUpdate).c_str());
    if (tbs.m.nextUpdatePresent) std::printf("    Next Update: %s\n", timeText(tbs.nextUpdate).c_str());
    if (tbs.m.crlExtensionsPresent) printExtensions(ctxt, tbs.crlExtensions, "Extensions", "    ");
    std::printf("    Revoked Certificates: %u\n", tbs.m.revokedCertificatesPresent ? tbs.revokedCertificates.count : 0u);
    forEach<ad::ASN1T_TBSCertList_revokedCertificates_element>(
        tbs.revokedCertificates, [ctxt](const ad::ASN1T_TBSCertList_revokedCertificates_element& e) {
            std::printf("        Serial Number: %s\n", serialText(e.userCertificate).c_str());
            std::printf("            Revocation Date: %s\n", timeText(e.revocationDate).c_str());
            if (e.m.crlEntryExtensionsPresent)
                printExtensions(ctxt, e.crlEntryExtensions, "Entry Extensions", "            ");
        });
    std::printf("    Signature: %s, %u bits\n", algorithmText(crl.algorithm).c_str(), crl.signature.numbits);
}

void showBasicOcsp(ASN1CTXT* ctxt, const ad::ASN1T_BasicOCSPResponse& basic) {
    const ad::ASN1T_ResponseData& data = basic.tbsResponseData;
    std::printf("    Version: %u\n", data.m.versionPresent ? static_cast<unsigned>(data.version) + 1 : 1u);
    if (data.responderID.t == 1 && data.responderID.u.byName)
        std::printf("    Responder: %s\n", nameText(*data.responderID.u.byName).c_str());
    else if (data.responderID.t == 2 && data.responderID.u.byKey)
        std::printf("    Responder Key Hash: %s\n",
                    hex(data.responderID.u.byKey->data, data.responderID.u.byKey->numocts).c_str());
    std::printf("    Produced At: %s\n", timeText(data.producedAt).c_str());
    forEach<ad::ASN1T_SingleResponse>(data.responses, [ctxt](const ad::ASN1T_SingleResponse& r) {
        static const char* const kStatus[] = {"?", "good", "revoked", "unknown"};
        std::printf("    Response:\n");
        if (r.certID.t == 1 && r.certID.u.certID) {
            const ad::ASN1T_CertID& id = *r.certID.u.certID;
            std::printf("        Hash Algorithm: %s\n", algorithmText(id.hashAlgorithm).c_str());
            std::printf("        Issuer Name Hash: %s\n", hex(id.issuerNameHash.data, id.issuerNameHash.numocts).c_str());
            std::printf("        Issuer Key Hash: %s\n", hex(id.issuerKeyHash.data, id.issuerKeyHash.numocts).c_str());
            std::printf("        Serial Number: %s\n", serialText(id.serialNumber).c_str());
        } else {
            std::printf("        Certificate identified otherwise (choice %u)\n", r.certID.t);
        }
        std::printf("        Cert Status: %s\n", r.certStatus.t <= 3 ? kStatus[r.certStatus.t] : "?");
        if (r.certStatus.t == 2 && r.certStatus.u.revoked) {
            std::printf("        Revocation Time: %s\n", timeText(r.certStatus.u.revoked->revocationTime).c_str());
            if (r.certStatus.u.revoked->m.revocationReasonPresent)
                std::printf("        Revocation Reason: %s\n", reasonText(r.certStatus.u.revoked->revocationReason).c_str());
        }
        std::printf("        This Update: %s\n", timeText(r.thisUpdate).c_str());
        if (r.m.nextUpdatePresent) std::printf("        Next Update: %s\n", timeText(r.nextUpdate).c_str());
        if (r.m.singleExtensionsPresent) printExtensions(ctxt, r.singleExtensions, "Extensions", "        ");
    });
    if (data.m.responseExtensionsPresent) printExtensions(ctxt, data.responseExtensions, "Response Extensions", "    ");
    std::printf("    Signature: %s, %u bits\n", algorithmText(basic.signatureAlgorithm).c_str(), basic.signature.numbits);
    std::printf("    Certificates: %u\n", basic.m.certsPresent ? basic.certs.count : 0u);
}

void showOcsp(ASN1CTXT* ctxt, const ad::ASN1T_OCSPResponse& resp) {
    static const char* const kStatus[] = {"successful", "malformedRequest", "internalError", "tryLater",
                                          "(4)",        "sigRequired",      "unauthorized"};
    std::printf("OCSP Response:\n    Response Status: %s\n",
                resp.responseStatus < 7 ? kStatus[resp.responseStatus] : std::to_string(resp.responseStatus).c_str());
    if (!resp.m.responseBytesPresent) return;
    std::printf("    Response Type: %s\n", oidText(resp.responseBytes.responseType).c_str());
    if (std::string(toOID(resp.responseBytes.responseType).c_str()) != "1.3.6.1.5.5.7.48.1.1") return;
    if (const auto* basic = decodeInner<ad::ASN1T_BasicOCSPResponse>(ctxt, "BasicOCSPResponse", resp.responseBytes.response.data,
                                                                      resp.responseBytes.response.numocts, "    "))
        showBasicOcsp(ctxt, *basic);
}

void showSignerInfo(const ad::ASN1T_SignerInfo& src) {
    std::printf("    Signer Info:\n");
    CSignerInfo info;
    try {
        ASN1T_SignerInfo_traits::get(src, info);
    } catch (const ATL::CAtlException& e) {
        // A signer named by key identifier has no issuer and serial to read.
        if (src.sid.t == 2 && src.sid.u.subjectKeyIdentifier)
            std::printf("        Subject Key Identifier: %s\n",
                        hex(src.sid.u.subjectKeyIdentifier->data, src.sid.u.subjectKeyIdentifier->numocts).c_str());
        else
            std::printf("        not read, %s\n", errorText(e).c_str());
    }
    if (info.get_issuer().cbData() != 0) {
        std::printf("        Version: %u\n", info.get_version());
        std::printf("        Issuer: %s\n", nameText(info.get_issuer()).c_str());
        std::printf("        Serial Number: %s\n", serialText(info.get_serialNumber()).c_str());
    }
    std::printf("        Digest Algorithm: %s\n", algorithmText(src.digestAlgorithm).c_str());
    std::printf("        Signature Algorithm: %s\n", algorithmText(src.signatureAlgorithm).c_str());
    if (!src.m.signedAttrsPresent) return;
    CAttributes attrs;
    try {
        ASN1T_Attributes_traits::get(src.signedAttrs, attrs);
    } catch (const ATL::CAtlException& e) {
        std::printf("        Signed Attributes: not read, %s\n", errorText(e).c_str());
        return;
    }
    std::printf("        Signed Attributes:\n");
    for (const CAttribute& attr : attrs) {
        const std::string oid = attr.get_oid();
        std::printf("            %s:\n", oidText(attr.get_oid()).c_str());
        for (const CAttrValue& v : attr) {
            const char* in = "                ";
            try {
                if (oid == "1.2.840.113549.1.9.5") {
                    CAttrSigningTime t(v.get_value());
                    t.decode();
                    std::printf("%s%s\n", in, t.get_time().getGeneralizedTime().c_str());
                } else if (oid == "1.2.840.113549.1.9.3") {
                    CAttrContentType t(v.get_value());
                    t.decode();
                    std::printf("%s%s\n", in, oidText(t.get_contentType()).c_str());
                } else if (oid == "1.2.840.113549.1.9.4") {
                    CAttrMessageDigest d(v.get_value());
                    d.decode();
                    std::printf("%s%s\n", in, hex(d.get_messageDigest()).c_str());
                } else if (oid == "1.2.840.113549.1.9.16.2.12") {
                    CAttrSigningCertificate s(v.get_value());
                    s.decode();
                    for (const CESSCertID& id : s.get_certs()) {
                        std::printf("%sCert Hash: %s\n", in, hex(id.get_certHash()).c_str());
                        if (const CIssuerSerial* is = id.get_issuerSerial())
                            std::printf("%sSerial Number: %s\n", in, serialText(is->get_serialNumber()).c_str());
                    }
                } else if (oid == "1.2.840.113549.1.9.16.2.47") {
                    CAttrSigningCertificateV2 s(v.get_value());
                    s.decode();
                    for (const CESSCertIDv2& id : s.get_certs()) {
                        std::printf("%sCert Hash: %s %s\n", in, oidText(id.get_hashAlgorithm().get_algorithm()).c_str(),
                                    hex(id.get_certHash()).c_str());
                        if (const CIssuerSerial* is = id.get_issuerSerial())
                            std::printf("%sSerial Number: %s\n", in, serialText(is->get_serialNumber()).c_str());
                    }
                } else {
                    std::printf("%s%s\n", in, hex(v.get_value()).c_str());
                }
            } catch (const ATL::CAtlException& e) {
                std::printf("%snot decoded, %s: %s\n", in, errorText(e).c_str(), hex(v.get_value()).c_str());
            }
        }
    }
}

void showTstInfo(const ad::ASN1T_TSTInfo& tst) {
    std::printf("    Time-Stamp Info:\n");
    std::printf("        Policy: %s\n", oidText(tst.policy).c_str());
    std::printf("        Serial Number: %s\n", serialText(tst.serialNumber).c_str());
    std::printf("        Gen Time: %s\n", timeText(tst.genTime).c_str());
    std::printf("        Message Imprint: %s %s\n", algorithmText(tst.messageImprint.hashAlgorithm).c_str(),
                hex(tst.messageImprint.hashedMessage.data, tst.messageImprint.hashedMessage.numocts).c_str());
    if (tst.m.noncePresent) std::printf("        Nonce: %s\n", serialText(tst.nonce).c_str());
    if (tst.m.tsaPresent) {
        CGeneralName tsa;
        try {
            ASN1T_GeneralName_traits::get(tst.tsa, tsa);
            std::printf("        TSA: %s\n", generalNameText(tsa).c_str());
        } catch (const ATL::CAtlException& e) {
            std::printf("        TSA: not read, %s\n", errorText(e).c_str());
        }
    }
}

void showSignedData(ASN1CTXT* ctxt, const ad::ASN1T_SignedData& sd) {
    std::printf("Signed Data:\n    Version: %u\n", static_cast<unsigned>(sd.version));
    std::printf("    Content Type: %s\n", oidText(sd.encapContentInfo.eContentType).c_str());
    const ASN1TDynOctStr& content = sd.encapContentInfo.eContent;
    if (!sd.encapContentInfo.m.eContentPresent)
        std::printf("    Content: detached\n");
    else if (std::string(toOID(sd.encapContentInfo.eContentType).c_str()) == "1.2.840.113549.1.9.16.1.4") {
        if (const auto* tst = decodeInner<ad::ASN1T_TSTInfo>(ctxt, "TSTInfo", content.data, content.numocts, "    "))
            showTstInfo(*tst);
    } else
        std::printf("    Content: %u octets\n", content.numocts);
    std::printf("    Certificates: %u\n", sd.m.certificatesPresent ? sd.certificates.count : 0u);
    std::printf("    CRLs: %u\n", sd.m.crlsPresent ? sd.crls.count : 0u);
    forEach<ad::ASN1T_SignerInfo>(sd.signerInfos, showSignerInfo);
}

void showContentInfo(ASN1CTXT* ctxt, const ad::ASN1T_ContentInfo& ci) {
    CContentInfo info;
    ASN1T_ContentInfo_traits::get(ci, info);
    std::printf("Content Info: %s\n", oidText(info.get_contentType()).c_str());
    if (std::string(info.get_contentType()) != "1.2.840.113549.1.7.2") {
        std::printf("    Content: %lu octets\n", static_cast<unsigned long>(info.get_content().cbData()));
        return;
    }
    if (const auto* sd = decodeInner<ad::ASN1T_SignedData>(ctxt, "SignedData", ci.content.data, ci.content.numocts, "    "))
        showSignedData(ctxt, *sd);
}

void showTimeStampResp(ASN1CTXT* ctxt, const ad::ASN1T_TimeStampResp& resp) {
    std::printf("Time-Stamp Response:\n");
    try {
        CPKIStatusInfo status(pkiStatusGranted);
        ASN1T_PKIStatusInfo_traits::get(resp.status, status);
        static const char* const kStatus[] = {"granted", "grantedWithMods", "rejection", "waiting",
                                              "revocationWarning", "revocationNotification", "keyUpdateWarning"};
        const unsigned value = status.get_pkiStatus();
        std::printf("    Status: %s\n", value < 7 ? kStatus[value] : std::to_string(value).c_str());
        for (const CPKIFreeTextString& s : status.get_statusString())
            std::printf("    Status String: %s\n", utf8(s.get_value()).c_str());
        if (resp.status.m.failInfoPresent) std::printf("    Failure Info: 0x%X\n", status.get_failureInfo().get_value());
    } catch (const ATL::CAtlException& e) {
        std::printf("    Status: not read, %s\n", errorText(e).c_str());
    }
    if (resp.m.timeStampTokenPresent) showContentInfo(ctxt, resp.timeStampToken);
}

// ---- Input and dispatch -------------------------------------------------------------------------

bool readFile(const std::string& path, std::vector<unsigned char>& out) {
    std::ifstream f(path, std::ios::binary);
    if (!f) return false;
    out.assign(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    return !f.bad();
}

// The first PEM block's content when the file is PEM; the file itself otherwise.
std::vector<unsigned char> fromPem(const std::vector<unsigned char>& in) {
    const std::string text(in.begin(), in.end());
    const size_t begin = text.find("-----BEGIN ");
    const size_t body = begin == std::string::npos ? begin : text.find('\n', begin);
    const size_t end = body == std::string::npos ? body : text.find("-----END ", body);
    if (end == std::string::npos) return in;
    static const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<unsigned char> der;
    unsigned acc = 0;
    int bits = 0;
    for (size_t i = body; i < end; ++i) {
        const size_t v = kAlphabet.find(text[i]);
        if (v == std::string::npos) continue;
        acc = (acc << 6) | static_cast<unsigned>(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            der.push_back(static_cast<unsigned char>(acc >> bits));
        }
    }
    return der;
}

void show(ASN1CTXT* ctxt, const Decoded& d) {
    const std::string name = d.type->name;
    if (name == "Certificate")
        showCertificate(ctxt, *static_cast<const ad::ASN1T_Certificate*>(d.value));
    else if (name == "CertificateList")
        showCrl(ctxt, *static_cast<const ad::ASN1T_CertificateList*>(d.value));
    else if (name == "OCSPResponse")
        showOcsp(ctxt, *static_cast<const ad::ASN1T_OCSPResponse*>(d.value));
    else if (name == "BasicOCSPResponse") {
        std::printf("Basic OCSP Response:\n");
        showBasicOcsp(ctxt, *static_cast<const ad::ASN1T_BasicOCSPResponse*>(d.value));
    } else if (name == "TimeStampResp")
        showTimeStampResp(ctxt, *static_cast<const ad::ASN1T_TimeStampResp*>(d.value));
    else if (name == "ContentInfo")
        showContentInfo(ctxt, *static_cast<const ad::ASN1T_ContentInfo*>(d.value));
    else if (name == "SignedData")
        showSignedData(ctxt, *static_cast<const ad::ASN1T_SignedData*>(d.value));
    else
        // Requests and CMP messages have no reading of their own here; the tree says all.
        printIndented(ad::describeValue(reg(), *d.type, d.value, ad::DescribeForm::Text), "");
}

int run(const std::vector<std::string>& args) {
    std::string typeName, file;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--type") {
            if (i + 1 >= args.size()) return usage(kCommand, "--type needs a value");
            typeName = args[++i];
        } else if (!args[i].empty() && args[i][0] == '-') {
            return usage(kCommand, "unknown option " + args[i]);
        } else if (file.empty()) {
            file = args[i];
        } else {
            return usage(kCommand, "one FILE only");
        }
    }
    if (file.empty()) return usage(kCommand, "no file given");
    std::vector<const ad::TypeInfo*> candidates;
    if (!typeName.empty()) {
        const ad::TypeInfo* t = reg().find(typeName.c_str());
        if (t == nullptr) return usage(kCommand, "no type " + typeName + " in the catalogue");
        candidates.push_back(t);
    } else {
        for (const char* name : kTopLevel)
            if (const ad::TypeInfo* t = reg().find(name)) candidates.push_back(t);
    }
    std::vector<unsigned char> input;
    if (!readFile(file, input)) {
        std::fprintf(stderr, "chainvet show: cannot read %s\n", file.c_str());
        return kCouldNotRun;
    }
    const std::vector<unsigned char> der = fromPem(input);

    ASN1CTXT ctxt;
    if (rtInitContext(&ctxt, nullptr) != 0) {
        std::fprintf(stderr, "chainvet show: no memory\n");
        return kCouldNotRun;
    }
    std::vector<Decoded> refused;
    const Decoded found = pickType(&ctxt, candidates, der, !typeName.empty(), "chainvet show", refused);
    int exitCode = kPass;
    if (found.type == nullptr) {
        for (const Decoded& d : refused)
            std::printf("%s: refused, status %s, at octet %u\n", d.type->name, statusText(d.status).c_str(),
                        d.consumed);
        exitCode = kChainFailed;
    } else {
        try {
            show(&ctxt, found);
        } catch (const ATL::CAtlException& e) {
            std::printf("not read, %s\n", errorText(e).c_str());
        }
    }
    rtFreeContext(&ctxt);
    return exitCode;
}

}  // namespace
