// chainvet name: the subject and issuer of a certificate, or the issuer of a revocation
// list, in the object model's text form of names.
#include "command.h"
#include "common.h"

#include "pki/name.h"

#include <cstdio>
#include <string>
#include <vector>

using namespace chainvet_tool;
using namespace Quorvane::ASN1;

namespace {

const char* kHelp =
    "usage: chainvet name FILE...\n\n"
    "Prints the subject and issuer of each certificate FILE, or the issuer of a revocation\n"
    "list, as the library writes names: RDNs in their encoded order joined by \",\", the\n"
    "components of one RDN by \"+\", each as KEYWORD=value with the keywords of the name\n"
    "register (CN, C, O, OU, E, DC, ...). An attribute outside the register is written as\n"
    "its dotted identifier and \"#\" with the hexadecimal of its encoded value. There are no\n"
    "escapes: a \",\", \"+\" or \"=\" inside a value stands as it is. FILE is DER or PEM.\n\n"
    "Exit status: 0 printed, 1 a name was not decoded or has no text form (the reason is\n"
    "printed in its place), 2 a file could not be read or is neither a certificate nor a\n"
    "revocation list, 64 bad usage.\n";

int run(const std::vector<std::string>& args);

const Command kCommand{"name", "subject and issuer names as text", kHelp, run};
Registrar s_register(kCommand);

// The file's bytes, or the base64 between the first BEGIN and END lines of a PEM file.
Quorvane::CBlob slurp(const std::string& path) {
    Quorvane::CBlob blob;
    blob.readFromFile(path.c_str());
    const std::string text(reinterpret_cast<const char*>(blob.pbData()), blob.cbData());
    const size_t begin = text.find("-----BEGIN ");
    const size_t body = begin == std::string::npos ? begin : text.find('\n', begin);
    const size_t end = body == std::string::npos ? body : text.find("-----END ", body);
    if (end == std::string::npos)
        return blob;
    static const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<unsigned char> der;
    unsigned acc = 0;
    int bits = 0;
    for (size_t i = body; i < end; ++i) {
        const size_t v = kAlphabet.find(text[i]);
        if (v == std::string::npos)
            continue;
        acc = (acc << 6) | static_cast<unsigned>(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            der.push_back(static_cast<unsigned char>(acc >> bits));
        }
    }
    return Quorvane::CBlob(der.data(), static_cast<unsigned long>(der.size()));
}

// UTF-8 for the terminal; the library's own narrowing takes one byte per character.
std::string utf8(const wchar_t* text) {
    const int size = WideCharToMultiByte(0, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0)
        return std::string();
    std::vector<char> out(static_cast<size_t>(size));
    WideCharToMultiByte(0, 0, text, -1, out.data(), size, nullptr, nullptr);
    return std::string(out.data());
}

// One line "label: text"; false, with the reason on the line, when the name has none.
bool printName(const char* label, const Quorvane::CBlob& encoded) {
    CName name;
    try {
        name.decode(encoded);
    } catch (const ATL::CAtlException& e) {
        std::printf("%s: not decoded, %s\n", label, describeError(static_cast<DWORD>(e.m_hr)).c_str());
        return false;
    }
    try {
        std::printf("%s: %s\n", label, utf8(name.toString().c_str()).c_str());
        return true;
    } catch (const ATL::CAtlException& e) {
        std::printf("%s: no text form, %s\n", label, describeError(static_cast<DWORD>(e.m_hr)).c_str());
    } catch (const std::exception& e) {
        std::printf("%s: no text form, %s\n", label, e.what());
    }
    return false;
}

// Where each of the first elements of the to-be-signed part starts and ends, found by a
// walk of the headers alone, so that an extension the catalogue refuses does not hide the
// names. Empty when the file is no SEQUENCE holding a SEQUENCE of definite length.
struct Element {
    ASN1TAG tag;
    ASN1UINT start, end;
};

std::vector<Element> tbsElements(const Quorvane::CBlob& der) {
    std::vector<Element> out;
    if (der.cbData() == 0 || der.cbData() > 0x7FFFFFFFul)
        return out;
    ctxt_handle h;
    ASN1CTXT* c = h.get();
    ASN1TAG tag = 0;
    int len = 0;
    // An outer indefinite length would turn off the runtime's bounds checks.
    bool ok = h.init() && xd_setp(c, der.pbData(), static_cast<int>(der.cbData()), &tag, &len) == 0 &&
              len != RT_INDEFINITE_LENGTH && xd_tag_len(c, &tag, &len, RT_MATCH_ADVANCE) == 0 &&
              tag == (TM_UNIV | TM_CONS | ASN_ID_SEQ) && xd_tag_len(c, &tag, &len, RT_MATCH_ADVANCE) == 0 &&
              tag == (TM_UNIV | TM_CONS | ASN_ID_SEQ);
    while (ok && out.size() < 6) {
        Element e{0, c->bufIndex, 0};
        ok = xd_tag_len(c, &e.tag, &len, 0) == 0 && xd_NextElement(c) == 0 && c->bufIndex <= der.cbData();
        e.end = c->bufIndex;
        if (ok)
            out.push_back(e);
    }
    h.release();
    return out;
}

// The names of one file; its exit status.
int printFile(const std::string& path) {
    Quorvane::CBlob der;
    try {
        der = slurp(path);
    } catch (const ATL::CAtlException& e) {
        std::fprintf(stderr, "chainvet name: cannot read %s: %s\n", path.c_str(),
                     describeError(static_cast<DWORD>(e.m_hr)).c_str());
        return kCouldNotRun;
    }
    const std::vector<Element> tbs = tbsElements(der);
    auto tagAt = [&tbs](size_t i) { return i < tbs.size() ? tbs[i].tag & ~TM_CONS : ~0u; };
    auto bytesAt = [&der, &tbs](size_t i) {
        return Quorvane::CBlob(der.pbData() + tbs[i].start, tbs[i].end - tbs[i].start);
    };
    const ASN1TAG kInteger = TM_UNIV | ASN_ID_INT, kSequence = TM_UNIV | ASN_ID_SEQ;
    // A certificate: [0] version, serial, signature, issuer, validity, subject.
    const size_t first = tagAt(0) == (TM_CTXT | 0) ? 1 : 0;
    if (tagAt(first) == kInteger && tagAt(first + 3) == kSequence && tagAt(first + 4) == kSequence) {
        const bool subject = printName("subject", bytesAt(first + 4));
        const bool issuer = printName("issuer", bytesAt(first + 2));
        return subject && issuer ? kPass : kChainFailed;
    }
    // A revocation list: version if any, signature, issuer, thisUpdate.
    const size_t alg = tagAt(0) == kInteger ? 1 : 0;
    const ASN1TAG update = tagAt(alg + 2);
    if (first == 0 && tagAt(alg) == kSequence && tagAt(alg + 1) == kSequence &&
        (update == (TM_UNIV | ASN_ID_UTCTime) || update == (TM_UNIV | ASN_ID_GeneralTime)))
        return printName("issuer", bytesAt(alg + 1)) ? kPass : kChainFailed;
    std::fprintf(stderr, "chainvet name: %s is neither a certificate nor a revocation list\n", path.c_str());
    return kCouldNotRun;
}

int run(const std::vector<std::string>& args) {
    std::vector<std::string> files;
    for (const std::string& arg : args) {
        if (!arg.empty() && arg[0] == '-')
            return usage(kCommand, "unknown option " + arg);
        files.push_back(arg);
    }
    if (files.empty())
        return usage(kCommand, "no file given");
    int status = kPass;
    for (const std::string& file : files) {
        if (files.size() > 1)
            std::printf("%s\n", file.c_str());
        const int one = printFile(file);
        if (one > status)
            status = one;
    }
    return status;
}

}  // namespace
