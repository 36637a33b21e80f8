// Helpers of the object-model tests: DER from hex (blanks allowed), what a step gives as
// hex or text, or "!" and the HRESULT (or logic_error words) it throws, and a walk over the
// extensions of the corpus's certificates and CRLs.
#pragma once

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>

#include "core/blob.h"
#include "core/exception.h"
#include "pki/codec.h"
#include "support/testsupport.h"

namespace pkitest {

inline Quorvane::CBlob der(std::string h) {
    h.erase(std::remove(h.begin(), h.end(), ' '), h.end());
    return testsupport::blobOf(testsupport::hex(h));
}

// A tag, then the length and bytes of a short text: a time or string element.
inline std::string tlv(const char* tag, const std::string& text) {
    const uint8_t len = static_cast<uint8_t>(text.size());
    return tag + testsupport::toHex(&len, 1) + testsupport::toHex(reinterpret_cast<const uint8_t*>(text.data()), len);
}

inline std::string outcome(const std::function<std::string()>& f) {
    try {
        return f();
    } catch (const ATL::CAtlException& e) {
        char text[16];
        std::snprintf(text, sizeof text, "!%08X", unsigned(e.m_hr));
        return text;
    } catch (const std::logic_error& e) {
        return std::string("!") + e.what();
    }
}

inline std::string outcome(const std::function<Quorvane::CBlob()>& f) {
    return outcome(std::function<std::string()>([&] { return testsupport::hexOf(f()); }));
}

// Decoded through the traits and encoded again.
template <class T, class Traits>
std::function<Quorvane::CBlob()> again(const std::string& wire) {
    return [wire] {
        T v;
        Quorvane::ASN1::asn1Decode<Traits>(der(wire), v);
        return Quorvane::ASN1::asn1Encode<Traits>(v);
    };
}

// Each extension of every certificate ("cert") or CRL ("crl") of the corpus the catalogue
// reads; those it refuses are counted.
inline void forEachExtension(const std::string& kind, std::map<std::string, int>& counts,
                             const std::function<void(const std::string& path, const std::string& oid,
                                                      const asn1data::ASN1T_Extension&)>& f) {
    for (const std::string& path : testsupport::corpusByKind(kind)) {
        const std::vector<uint8_t> file = testsupport::readFile(path);
        ASN1BERDecodeBuffer buffer(file.data(), static_cast<int>(file.size()));
        asn1data::ASN1T_Certificate cert;
        asn1data::ASN1T_CertificateList crl;
        if ((kind == "cert" ? asn1data::ASN1C_Certificate(buffer, cert).Decode()
                            : asn1data::ASN1C_CertificateList(buffer, crl).Decode()) < 0) {
            ++counts[kind + " refused by the catalogue"];
            continue;
        }
        const auto& list = kind == "cert" ? cert.toBeSigned.extensions : crl.toBeSigned.crlExtensions;
        for (const Asn1RTDListNode* n = list.head; n != nullptr; n = n->next) {
            const auto& ext = *static_cast<const asn1data::ASN1T_Extension*>(n->data);
            f(path, Quorvane::ASN1::toOID(ext.extnID).c_str(), ext);
        }
    }
}

// The counts a corpus test found, one line each.
inline void printCounts(const char* what, const std::map<std::string, int>& counts) {
    for (const auto& c : counts)
        std::printf("%s of the corpus: %-50s %d\n", what, c.first.c_str(), c.second);
}

}  // namespace pkitest
