// Helpers shared by the tests: hex, hand-made certificate contexts and chains, trace
// capture, corpus access, thrown status codes, a counting heap.
#pragma once

#include "core/blob.h"
#include "qvcapi.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace testsupport {

std::vector<uint8_t> hex(const std::string& text);
std::string toHex(const uint8_t* p, size_t n);  // upper case
std::vector<uint8_t> readFile(const std::string& path);
bool fileExists(const std::string& path);
Quorvane::CBlob blobOf(const std::vector<uint8_t>& bytes);
std::string hexOf(const Quorvane::CBlob& b);

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

// A certificate context built by hand: CN=Test issued by itself, serial 01 (little-endian
// as the context holds it), key bits 0102030405 unless changed; context() wires the fields.
struct FakeCert {
    std::vector<uint8_t> subject = hex("300F310D300B06035504030C0454657374"), issuer = subject, serial{1},
                         key = hex("0102030405");
    FakeCert& addExtension(const char* oid, const std::vector<uint8_t>& value);
    PCCERT_CONTEXT context();

private:
    CERT_CONTEXT m_ctx{};
    CERT_INFO m_info{};
    std::vector<std::pair<std::string, std::vector<uint8_t>>> m_values;
    std::vector<CERT_EXTENSION> m_exts;
};

// One simple chain over the given certificates (end first).
class FakeChain {
public:
    FakeChain(std::vector<PCCERT_CONTEXT> certs, DWORD trustErrorStatus = 0);
    PCCERT_CHAIN_CONTEXT get() const { return &m_chain; }
    CERT_CHAIN_ELEMENT& element(size_t i) { return m_elements[i]; }

private:
    CERT_CHAIN_CONTEXT m_chain{};
    CERT_SIMPLE_CHAIN m_simple{};
    PCERT_SIMPLE_CHAIN m_simplePtr = nullptr;
    std::vector<CERT_CHAIN_ELEMENT> m_elements;
    std::vector<PCERT_CHAIN_ELEMENT> m_elementPtrs;
};

// Switches trace on into memory for the lifetime of the object; text() holds the lines as
// "function|text".
class TraceCapture {
public:
    TraceCapture();
    ~TraceCapture();
    std::string text() const;

private:
    TSupportDbContext_* m_saved;
    TSupportDbContext_* m_ctx;
};

// Every regular file below corpus/<sub>, sorted; empty when the corpus is absent.
std::vector<std::string> corpusFiles(const std::string& sub);
// Every object MANIFEST.tsv lists under this kind ("cert", "crl", ...), in any folder;
// malformed ones (below a bad/ folder) only with withBad.
std::vector<std::string> corpusByKind(const std::string& kind, bool withBad = false);
std::string corpusDir();
bool corpusPresent();

}  // namespace testsupport

#define CHAINVET_SKIP_WITHOUT_CORPUS()                                                    \
    do {                                                                                  \
        if (!testsupport::corpusPresent())                                                \
            GTEST_SKIP() << "corpus folder " << testsupport::corpusDir()                  \
                         << " is absent: tests over real-world data skipped";             \
    } while (0)
