#include "support/testsupport.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>

namespace testsupport {

std::vector<uint8_t> hex(const std::string& text) {
    std::string digits;
    for (char c : text) {
        if (std::isxdigit(static_cast<unsigned char>(c)))
            digits += c;
        else if (c != ' ' && c != ':' && c != '\n')
            throw std::invalid_argument("bad hex");
    }
    if (digits.size() % 2)
        throw std::invalid_argument("odd hex");
    std::vector<uint8_t> out;
    for (size_t i = 0; i < digits.size(); i += 2)
        out.push_back(static_cast<uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    return out;
}

std::string toHex(const uint8_t* p, size_t n) {
    static const char* digits = "0123456789ABCDEF";
    std::string s;
    for (size_t i = 0; i < n; ++i)
        s.append({digits[p[i] >> 4], digits[p[i] & 15]});
    return s;
}

std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

bool fileExists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

Quorvane::CBlob blobOf(const std::vector<uint8_t>& bytes) {
    return Quorvane::CBlob(bytes.data(), static_cast<unsigned long>(bytes.size()));
}

std::string hexOf(const Quorvane::CBlob& b) { return toHex(b.pbData(), b.cbData()); }

void* CountingHeap::Allocate(size_t n) noexcept {
    ++allocations;
    lastSize = n;
    return refuse ? nullptr : std::malloc(n);
}

void CountingHeap::Free(void* p) noexcept {
    frees += p != nullptr;
    std::free(p);
}

void* CountingHeap::Reallocate(void* p, size_t n) noexcept {
    ++reallocations;
    lastSize = n;
    return refuse ? nullptr : std::realloc(p, n);
}

FakeCert::FakeCert() : m_subject(hex("300F310D300B06035504030C0454657374")), m_serial{0x01}, m_key(hex("0102030405")) {
    m_issuer = m_subject;  // CN=Test
    wire();
}

FakeCert& FakeCert::addExtension(const char* oid, const std::vector<uint8_t>& value, bool critical) {
    m_oids.emplace_back(oid);
    m_values.push_back(value);
    m_critical.push_back(critical ? TRUE : FALSE);
    wire();
    return *this;
}
FakeCert& FakeCert::setSubject(const std::vector<uint8_t>& der) { m_subject = der; wire(); return *this; }
FakeCert& FakeCert::setIssuer(const std::vector<uint8_t>& der) { m_issuer = der; wire(); return *this; }
FakeCert& FakeCert::setSerial(const std::vector<uint8_t>& le) { m_serial = le; wire(); return *this; }
FakeCert& FakeCert::setPublicKey(const std::vector<uint8_t>& bits) { m_key = bits; wire(); return *this; }

void FakeCert::wire() {
    m_exts.resize(m_oids.size());
    for (size_t i = 0; i < m_oids.size(); ++i)
        m_exts[i] = CERT_EXTENSION{&m_oids[i][0], m_critical[i],
                                   {static_cast<DWORD>(m_values[i].size()), m_values[i].data()}};
    m_info.dwVersion = 2;
    m_info.SerialNumber = {static_cast<DWORD>(m_serial.size()), m_serial.data()};
    m_info.Issuer = {static_cast<DWORD>(m_issuer.size()), m_issuer.data()};
    m_info.Subject = {static_cast<DWORD>(m_subject.size()), m_subject.data()};
    m_info.SubjectPublicKeyInfo.PublicKey = {static_cast<DWORD>(m_key.size()), m_key.data(), 0};
    m_info.cExtension = static_cast<DWORD>(m_exts.size());
    m_info.rgExtension = m_exts.empty() ? nullptr : m_exts.data();
    m_ctx.dwCertEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
    m_ctx.pCertInfo = &m_info;
}

PCCERT_CONTEXT FakeCert::context() { return &m_ctx; }

FakeChain::FakeChain(std::vector<PCCERT_CONTEXT> certs, DWORD trustErrorStatus)
    : m_elements(certs.size()), m_elementPtrs(certs.size()) {
    for (size_t i = 0; i < certs.size(); ++i) {
        m_elements[i].cbSize = sizeof(CERT_CHAIN_ELEMENT);
        m_elements[i].pCertContext = certs[i];
        m_elementPtrs[i] = &m_elements[i];
    }
    m_simple.cbSize = sizeof m_simple;
    m_simple.cElement = static_cast<DWORD>(certs.size());
    m_simple.rgpElement = m_elementPtrs.data();
    m_simple.TrustStatus.dwErrorStatus = trustErrorStatus;
    m_simplePtr = &m_simple;
    m_chain.cbSize = sizeof m_chain;
    m_chain.TrustStatus.dwErrorStatus = trustErrorStatus;
    m_chain.cChain = 1;
    m_chain.rgpChain = &m_simplePtr;
}

TraceCapture::TraceCapture() : m_saved(chainvet_db_ctx), m_ctx(support_print_init_memory("test", 127)) {
    chainvet_db_ctx = m_ctx;
}

TraceCapture::~TraceCapture() {
    chainvet_db_ctx = m_saved;
    support_print_done(m_ctx);
}

std::string TraceCapture::text() const { return support_print_memory_text(m_ctx); }

std::vector<std::string> TraceCapture::lines() const {
    std::vector<std::string> out;
    std::istringstream in(text());
    for (std::string line; std::getline(in, line);)
        out.push_back(line + (in.eof() ? "" : "\n"));
    return out;
}

void TraceCapture::clear() { support_print_memory_clear(m_ctx); }

bool inOrder(const std::vector<std::string>& lines, const std::vector<std::string>& expected) {
    size_t at = 0;
    for (const std::string& line : lines)
        at += at < expected.size() && line == expected[at];
    return at == expected.size();
}

std::string corpusDir() { return CHAINVET_CORPUS_DIR; }

bool corpusPresent() { return fileExists(corpusDir() + "/MANIFEST.tsv"); }

std::vector<std::string> corpusFiles(const std::string& sub) {
    std::vector<std::string> out;
    std::error_code ec;
    if (corpusPresent())
        for (std::filesystem::recursive_directory_iterator
                 it(corpusDir() + "/" + sub, std::filesystem::directory_options::follow_directory_symlink, ec), end;
             !ec && it != end; it.increment(ec))
            if (it->is_regular_file())
                out.push_back(it->path().string());
    std::sort(out.begin(), out.end());
    return out;
}

std::vector<std::string> corpusByKind(const std::string& kind, bool withBad) {
    std::vector<std::string> out;
    std::ifstream manifest(corpusDir() + "/MANIFEST.tsv");
    for (std::string line; std::getline(manifest, line);) {
        std::istringstream fields(line);
        std::string path, sha, k;
        if (std::getline(fields, path, '\t') && std::getline(fields, sha, '\t') && std::getline(fields, k, '\t') &&
            k == kind && (withBad || path.find("/bad/") == std::string::npos))
            out.push_back(corpusDir() + "/" + path);
    }
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace testsupport
