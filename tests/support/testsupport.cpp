#include "support/testsupport.h"

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>

namespace testsupport {

std::vector<uint8_t> hex(const std::string& text) {
    std::vector<uint8_t> out;
    int hi = -1;
    for (char c : text) {
        int v;
        if (c >= '0' && c <= '9') v = c - '0';
        else if (c >= 'a' && c <= 'f') v = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F') v = c - 'A' + 10;
        else if (c == ' ' || c == ':' || c == '\n') continue;
        else throw std::invalid_argument("bad hex");
        if (hi < 0) {
            hi = v;
        } else {
            out.push_back(static_cast<uint8_t>(hi << 4 | v));
            hi = -1;
        }
    }
    if (hi >= 0)
        throw std::invalid_argument("odd hex");
    return out;
}

std::string toHex(const uint8_t* p, size_t n) {
    static const char* digits = "0123456789ABCDEF";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += digits[p[i] >> 4];
        s += digits[p[i] & 15];
    }
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

FakeCert::FakeCert() {
    m_subject = hex("300F310D300B06035504030C0454657374");  // CN=Test
    m_issuer = m_subject;
    m_serial = {0x01};
    m_key = hex("0102030405");
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
    for (size_t i = 0; i < m_oids.size(); ++i) {
        m_exts[i].pszObjId = &m_oids[i][0];
        m_exts[i].fCritical = m_critical[i];
        m_exts[i].Value.cbData = static_cast<DWORD>(m_values[i].size());
        m_exts[i].Value.pbData = m_values[i].data();
    }
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

FakeChain::FakeChain(std::vector<PCCERT_CONTEXT> certs, DWORD trustErrorStatus) {
    m_elements.resize(certs.size());
    m_elementPtrs.resize(certs.size());
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
    std::string all = text();
    size_t start = 0;
    while (start < all.size()) {
        size_t end = all.find('\n', start);
        if (end == std::string::npos)
            end = all.size() - 1;
        out.push_back(all.substr(start, end - start + 1));
        start = end + 1;
    }
    return out;
}

void TraceCapture::clear() { support_print_memory_clear(m_ctx); }

std::string corpusDir() { return CHAINVET_CORPUS_DIR; }

bool corpusPresent() { return fileExists(corpusDir() + "/MANIFEST.tsv"); }

namespace {
void walk(const std::string& dir, std::vector<std::string>& out) {
    DIR* d = ::opendir(dir.c_str());
    if (!d)
        return;
    while (dirent* e = ::readdir(d)) {
        std::string name = e->d_name;
        if (name == "." || name == "..")
            continue;
        std::string path = dir + "/" + name;
        struct stat st;
        if (::stat(path.c_str(), &st) != 0)
            continue;
        if (S_ISDIR(st.st_mode))
            walk(path, out);
        else if (S_ISREG(st.st_mode))
            out.push_back(path);
    }
    ::closedir(d);
}
}  // namespace

std::vector<std::string> corpusFiles(const std::string& sub) {
    std::vector<std::string> out;
    if (!corpusPresent())
        return out;
    walk(corpusDir() + "/" + sub, out);
    std::sort(out.begin(), out.end());
    return out;
}

std::vector<std::string> corpusByKind(const std::string& kind, bool withBad) {
    std::vector<std::string> out;
    std::ifstream manifest(corpusDir() + "/MANIFEST.tsv");
    std::string line;
    while (std::getline(manifest, line)) {
        std::istringstream fields(line);
        std::string path, sha, k;
        if (std::getline(fields, path, '\t') && std::getline(fields, sha, '\t') &&
            std::getline(fields, k, '\t') && k == kind &&
            (withBad || path.find("/bad/") == std::string::npos))
            out.push_back(corpusDir() + "/" + path);
    }
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace testsupport
