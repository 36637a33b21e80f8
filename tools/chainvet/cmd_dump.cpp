// chainvet dump: a DER, BER or PEM file decoded by the catalogue's decoder of one type and
// printed as a tree of its fields (or as JSON); optionally re-encoded by its encoder.
#include "catalogue_read.h"
#include "command.h"

#include "asn1data/catalogue.h"
#include "asn1data/describe.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using namespace chainvet_tool;

namespace {

const char* kHelp =
    "usage: chainvet dump [--type NAME] [--json] [--der OUT] FILE\n\n"
    "Decodes FILE (DER, BER, or PEM) with the catalogue's decoder of the type NAME and\n"
    "prints the value as a tree: the catalogue's field names, identifiers with the name of\n"
    "their constant, open types decoded through their information object or shown raw.\n"
    "Without --type the top-level types are tried in turn (Certificate, CertificateList,\n"
    "CertificationRequest, ContentInfo, the OCSP, time-stamp and CMP messages); the first\n"
    "that decodes the whole file is taken, else the first that decodes its beginning.\n\n"
    "  --type NAME   decode as this catalogue type\n"
    "  --json        print the tree as JSON (an open type left raw is {\"raw\": \"HEX\"})\n"
    "  --der OUT     write the value re-encoded by the catalogue's encoder to OUT\n\n"
    "Exit status: 0 decoded, 1 refused by the decoder (status and its name are printed),\n"
    "2 a file could not be read or written, 64 bad usage.\n";

int run(const std::vector<std::string>& args);

const Command kCommand{"dump", "decode a file with the type catalogue and print it", kHelp, run};
Registrar s_register(kCommand);

// Top-level types tried when none is named, in this order; those not in the catalogue
// yet are skipped.
const char* const kTopLevel[] = {"Certificate", "CertificateList", "CertificationRequest",
                                 "ContentInfo", "OCSPResponse", "OCSPRequest", "TimeStampResp",
                                 "TimeStampReq", "PKIMessage"};

bool readFile(const std::string& path, std::vector<unsigned char>& out) {
    std::ifstream f(path, std::ios::binary);
    if (!f) return false;
    out.assign(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    return !f.bad();
}

int base64Value(unsigned char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

// The first PEM block of the text, if the file is one; false for binary input.
bool fromPem(const std::vector<unsigned char>& in, std::vector<unsigned char>& der) {
    const std::string text(in.begin(), in.end());
    const size_t begin = text.find("-----BEGIN ");
    if (begin == std::string::npos) return false;
    const size_t body = text.find('\n', begin);
    const size_t end = text.find("-----END ", begin);
    if (body == std::string::npos || end == std::string::npos || end < body) return false;
    der.clear();
    unsigned acc = 0;
    int bits = 0;
    for (size_t i = body; i < end; ++i) {
        const int v = base64Value((unsigned char)text[i]);
        if (v < 0) continue;
        acc = (acc << 6) | (unsigned)v;
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            der.push_back((unsigned char)(acc >> bits));
        }
    }
    return true;
}

// One decoding attempt on a context of its own; the record lives in the context's heap.
int run(const std::vector<std::string>& args) {
    std::string typeName, derOut, file;
    bool json = false;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--type" || args[i] == "--der") {
            if (i + 1 >= args.size()) return usage(kCommand, args[i] + " needs a value");
            (args[i] == "--type" ? typeName : derOut) = args[i + 1];
            ++i;
        } else if (args[i] == "--json") {
            json = true;
        } else if (!args[i].empty() && args[i][0] == '-') {
            return usage(kCommand, "unknown option " + args[i]);
        } else if (file.empty()) {
            file = args[i];
        } else {
            return usage(kCommand, "one FILE only");
        }
    }
    if (file.empty()) return usage(kCommand, "no file given");

    const asn1data::TypeRegistry& reg = asn1data::typeRegistry();
    std::vector<const asn1data::TypeInfo*> candidates;
    if (!typeName.empty()) {
        const asn1data::TypeInfo* t = reg.find(typeName.c_str());
        if (t == nullptr) return usage(kCommand, "no type " + typeName + " in the catalogue");
        candidates.push_back(t);
    } else {
        for (const char* name : kTopLevel)
            if (const asn1data::TypeInfo* t = reg.find(name)) candidates.push_back(t);
    }

    std::vector<unsigned char> input, der;
    if (!readFile(file, input)) {
        std::fprintf(stderr, "chainvet dump: cannot read %s\n", file.c_str());
        return kCouldNotRun;
    }
    if (!fromPem(input, der)) der = input;

    ASN1CTXT ctxt;
    if (rtInitContext(&ctxt, nullptr) != 0) {
        std::fprintf(stderr, "chainvet dump: no memory\n");
        return kCouldNotRun;
    }
    std::vector<Decoded> refused;
    const Decoded found = pickType(&ctxt, candidates, der, !typeName.empty(), "chainvet dump", refused);
    int exitCode = kPass;
    if (found.type == nullptr) {
        for (const Decoded& d : refused) {
            if (d.status != 0)
                std::printf("%s: refused, status %s, at octet %u\n", d.type->name, statusText(d.status).c_str(),
                            d.consumed);
            else
                std::printf("%s: decoded %u of %zu octets only\n", d.type->name, d.consumed, der.size());
        }
        exitCode = kChainFailed;
    } else {
        const std::string text = asn1data::describeValue(
            reg, *found.type, found.value, json ? asn1data::DescribeForm::Json : asn1data::DescribeForm::Text);
        std::fputs(text.c_str(), stdout);
        if (!derOut.empty()) {
            // Encoded on the same context: the value's memory stays where it is.
            int len = xe_setp(&ctxt, nullptr, 0);
            if (len == 0) len = found.type->encode(&ctxt, found.value, ASN1EXPL);
            if (len < 0) {
                std::printf("re-encoding refused, status %s\n", statusText(len).c_str());
                exitCode = kChainFailed;
            } else {
                std::ofstream out(derOut, std::ios::binary);
                out.write(reinterpret_cast<const char*>(xe_getp(&ctxt)), len);
                if (!out) {
                    std::fprintf(stderr, "chainvet dump: cannot write %s\n", derOut.c_str());
                    exitCode = kCouldNotRun;
                }
            }
        }
    }
    rtFreeContext(&ctxt);
    return exitCode;
}

}  // namespace
