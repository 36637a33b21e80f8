// Helpers shared by the tests: hex, files, corpus access, thrown status codes, a counting heap.
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
