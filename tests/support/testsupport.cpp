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
