// Helpers shared by the tests: hex, hand-made certificate contexts and chains, trace
// capture, corpus access, thrown status codes, a counting heap.
#pragma once

#include "core/blob.h"
#include "qvcapi.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace testsupport {

std::vector<uint8_t> hex(const std::string& text);
std::string toHex(const uint8_t* p, size_t n);
std::vector<uint8_t> readFile(const std::string& path);
bool fileExists(const std::string& path);
Quorvane::CBlob blobOf(const std::vector<uint8_t>& bytes);
std::string hexOf(const Quorvane::CBlob& b);  // upper case

// The m_hr of the CAtlException that f throws; a test failure when it throws none.
template <typename F>
HRESULT thrownHr(F f) {
    try {
        f();
    } catch (const ATL::CAtlException& e) {
        return e.m_hr;
    }
    ADD_FAILURE() << "no CAtlException";
    return 0x7FFFFFFF;
}

// A heap that counts what passes through it and can be told to refuse.
class CountingHeap : public ATL::IAtlMemMgr {
public:
    void* Allocate(size_t n) noexcept override;
    void Free(void* p) noexcept override;
    void* Reallocate(void* p, size_t n) noexcept override;
    size_t GetSize(void*) noexcept override { return 0; }
    std::atomic<int> allocations{0}, frees{0}, reallocations{0};
    size_t lastSize = 0;
    bool refuse = false;
};

// A certificate context built by hand: names, key bits, serial and extensions as given.
class FakeCert {
public:
    FakeCert();
    FakeCert& addExtension(const char* oid, const std::vector<uint8_t>& value, bool critical = false);
    FakeCert& setSubject(const std::vector<uint8_t>& der);
    FakeCert& setIssuer(const std::vector<uint8_t>& der);
    FakeCert& setSerial(const std::vector<uint8_t>& littleEndian);
    FakeCert& setPublicKey(const std::vector<uint8_t>& bits);
    PCCERT_CONTEXT context();

private:
    void wire();
    CERT_CONTEXT m_ctx{};
    CERT_INFO m_info{};
    std::vector<std::string> m_oids;
    std::vector<std::vector<uint8_t>> m_values;
    std::vector<BOOL> m_critical;
    std::vector<CERT_EXTENSION> m_exts;
    std::vector<uint8_t> m_subject, m_issuer, m_serial, m_key;
};

// One simple chain over the given certificates (end first).
class FakeChain {
public:
    FakeChain(std::vector<PCCERT_CONTEXT> certs, DWORD trustErrorStatus = 0);
    PCCERT_CHAIN_CONTEXT get() const { return &m_chain; }
    CERT_CHAIN_ELEMENT& element(size_t i) { return m_elements[i]; }
    CERT_CHAIN_CONTEXT& context() { return m_chain; }

private:
    CERT_CHAIN_CONTEXT m_chain{};
    CERT_SIMPLE_CHAIN m_simple{};
    PCERT_SIMPLE_CHAIN m_simplePtr = nullptr;
    std::vector<CERT_CHAIN_ELEMENT> m_elements;
    std::vector<PCERT_CHAIN_ELEMENT> m_elementPtrs;
};

// Switches trace on into memory for the lifetime of the object and hands back the lines
// as "function|text" records.
class TraceCapture {
public:
    TraceCapture();
    ~TraceCapture();
    std::string text() const;
    std::vector<std::string> lines() const;
    void clear();

private:
    TSupportDbContext_* m_saved;
    TSupportDbContext_* m_ctx;
};

// Whether `expected` occurs in `lines` in this order, other lines between them allowed.
bool inOrder(const std::vector<std::string>& lines, const std::vector<std::string>& expected);

// Every regular file below corpus/<sub>, sorted; empty when the corpus is absent.
std::vector<std::string> corpusFiles(const std::string& sub);
// Every object MANIFEST.tsv lists under this kind ("cert", "crl", ...), in any folder;
// malformed ones (below a bad/ folder) only with withBad.
std::vector<std::string> corpusByKind(const std::string& kind, bool withBad = false);
std::string corpusDir();
bool corpusPresent();

// The bare status records of a policy call.
struct PolicyRecords {
    CERT_CHAIN_POLICY_PARA para{sizeof(CERT_CHAIN_POLICY_PARA), 0, nullptr};
    CERT_CHAIN_POLICY_STATUS status{sizeof(CERT_CHAIN_POLICY_STATUS), 0, 0, 0, nullptr};
};

}  // namespace testsupport

#define CHAINVET_SKIP_WITHOUT_CORPUS()                                                    \
    do {                                                                                  \
        if (!testsupport::corpusPresent())                                                \
            GTEST_SKIP() << "corpus folder " << testsupport::corpusDir()                  \
                         << " is absent: tests over real-world data skipped";             \
    } while (0)
