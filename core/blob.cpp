// Quorvane::CBlob: a plain owning buffer with no separate capacity.
#include "core/blob.h"

#include "core/exception.h"
#include "qvcapi/support.h"

#include <cctype>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <fstream>
#include <memory>
#include <string>

namespace Quorvane {

namespace {

const HRESULT kFileNotFound = static_cast<HRESULT>(0x80070002u);
const HRESULT kFileCorrupt = static_cast<HRESULT>(0x80070570u);

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// The narrow form of a wide path: one byte per character is all the room it gets.
std::unique_ptr<char[]> narrowPath(const wchar_t* path) {
    const size_t length = std::wcslen(path);
    std::unique_ptr<char[]> buffer(new char[length + 1]());
    std::mbstate_t state{};
    const wchar_t* src = path;
    safe_wcsrtombs(buffer.get(), &src, length, &state);
    return buffer;
}

}  // namespace

CBlob::CBlob(const unsigned char* pb, unsigned long cb) : m_cbData(0), m_pbData(nullptr) {
    if (cb != 0) {
        m_pbData = new unsigned char[cb];
        std::memcpy(m_pbData, pb, cb);
        m_cbData = cb;
    }
}

CBlob::CBlob(const CBlob& other) : CBlob(other.m_pbData, other.m_cbData) {}

CBlob::CBlob(unsigned long cb) : m_cbData(cb), m_pbData(new unsigned char[cb]()) {}

CBlob::~CBlob() { delete[] m_pbData; }

void CBlob::assign(const unsigned char* pb, unsigned long cb) {
    unsigned char* fresh = nullptr;
    if (cb != 0) {
        fresh = new unsigned char[cb];
        std::memcpy(fresh, pb, cb);
    }
    m_cbData = cb;
    delete[] m_pbData;
    m_pbData = fresh;
}

CBlob& CBlob::operator=(const CBlob& other) {
    assign(other.m_pbData, other.m_cbData);
    return *this;
}

void CBlob::resize_to(unsigned long cb) {
    if (cb > m_cbData) {
        unsigned char* fresh = new unsigned char[cb];
        if (m_cbData != 0)
            std::memcpy(fresh, m_pbData, m_cbData);
        delete[] m_pbData;
        m_pbData = fresh;
    }
    m_cbData = cb;
}

void CBlob::swap(CBlob& other) noexcept {
    std::swap(m_cbData, other.m_cbData);
    std::swap(m_pbData, other.m_pbData);
}

void CBlob::reverse() noexcept {
    if (m_cbData < 2)
        return;
    for (unsigned long i = 0, j = m_cbData - 1; i < j; ++i, --j)
        std::swap(m_pbData[i], m_pbData[j]);
}

CBlob& CBlob::operator+=(const CBlob& other) {
    const unsigned long old = m_cbData;
    if (other.m_cbData > ~0ul - old)
        throw std::bad_alloc();
    resize_to(old + other.m_cbData);
    // Appending the blob to itself is not supported: it only grows, the new half is not
    // filled, and nothing is read or written past the buffer.
    if (&other != this && other.m_cbData != 0)
        std::memcpy(m_pbData + old, other.m_pbData, other.m_cbData);
    return *this;
}

bool CBlob::operator==(const CBlob& other) const noexcept {
    if (m_cbData != other.m_cbData)
        return false;
    return m_cbData == 0 || std::memcmp(m_pbData, other.m_pbData, m_cbData) == 0;
}

int CBlob::compare(const CBlob& other) const noexcept {
    const unsigned long common = m_cbData < other.m_cbData ? m_cbData : other.m_cbData;
    if (common != 0) {
        const int c = std::memcmp(m_pbData, other.m_pbData, common);
        if (c != 0)
            return c;
    }
    // The length difference is judged as a 32-bit signed value.
    return static_cast<int32_t>(static_cast<uint32_t>(m_cbData - other.m_cbData));
}

void CBlob::readFromFile(const char* path) {
    std::ifstream in(path, std::ios::in | std::ios::binary);
    if (!in.is_open()) {
        m_cbData = 0;
        ATL::AtlThrowImpl(kFileNotFound);
    }
    in.seekg(0, std::ios::end);
    const std::streamoff end = in.tellg();
    if (end < 0) {
        m_cbData = 0;
        ATL::AtlThrowImpl(kFileCorrupt);
    }
    if (end == 0) {
        m_cbData = 0;
        delete[] m_pbData;
        m_pbData = nullptr;
        return;
    }
    in.seekg(0, std::ios::beg);
    // Something that opens but cannot be read (a directory) fails here, before any
    // buffer of its claimed length is made.
    if (in.peek() == std::char_traits<char>::eof()) {
        m_cbData = 0;
        ATL::AtlThrowImpl(kFileCorrupt);
    }
    const uint32_t length = static_cast<uint32_t>(end);
    std::unique_ptr<unsigned char[]> temp(new unsigned char[length]());
    in.read(reinterpret_cast<char*>(temp.get()), static_cast<std::streamsize>(length));
    if (in.fail() || in.bad()) {
        m_cbData = 0;
        ATL::AtlThrowImpl(kFileCorrupt);
    }
    assign(temp.get(), length);
}

void CBlob::readFromFile(const wchar_t* path) { readFromFile(narrowPath(path).get()); }

void CBlob::writeToFile(const char* path) const {
    std::ofstream out(path, std::ios::out | std::ios::binary | std::ios::trunc);
    if (!out.is_open())
        ATL::AtlThrowImpl(kFileNotFound);
    if (m_cbData != 0)
        out.write(reinterpret_cast<const char*>(m_pbData), static_cast<std::streamsize>(m_cbData));
    out.close();
}

void CBlob::writeToFile(const wchar_t* path) const { writeToFile(narrowPath(path).get()); }

void CBlob::readFromHexString(const char* text) {
    const size_t length = std::strlen(text);
    const unsigned long room = static_cast<unsigned long>(length / 2 + 1);
    if (m_cbData < room)
        resize_to(room);
    m_cbData = 0;
    const char* p = text;
    while (isSpace(*p))
        ++p;
    while (static_cast<signed char>(*p) > 0) {
        const int hi = hexValue(p[0]);
        if (hi < 0)
            break;
        const int lo = static_cast<signed char>(p[1]) < 0 ? -1 : hexValue(p[1]);
        if (lo < 0)
            break;
        m_pbData[m_cbData++] = static_cast<unsigned char>(hi << 4 | lo);
        p += 2;
        while (isSpace(*p))
            ++p;
    }
}

CStringProxy CBlob::writeToHexString(unsigned long n) const {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(m_cbData * 3);
    for (unsigned long i = 0; i < m_cbData; ++i) {
        if (n != 0 && i != 0 && i % n == 0)
            text.push_back(' ');
        text.push_back(kDigits[m_pbData[i] >> 4]);
        text.push_back(kDigits[m_pbData[i] & 0x0F]);
    }
    return CStringProxy(text.c_str());
}

}  // namespace Quorvane
