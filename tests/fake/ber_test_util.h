// Shared by the BER tests: a decode context over an exact-size copy of some hex (so that
// ASan sees any read past the end), and an encode context with its output as hex.
#pragma once

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "asn1rt/ber.h"
#include "support/testsupport.h"

namespace bertest {

class Dec {
public:
    explicit Dec(const std::string& hexText, ASN1USINT flags = 0) : m_size(testsupport::hex(hexText).size())
    {
        std::vector<uint8_t> v = testsupport::hex(hexText);
        m_mem.reset(new uint8_t[m_size ? m_size : 1]);
        if (m_size)
            std::memcpy(m_mem.get(), v.data(), m_size);
        EXPECT_EQ(rtInitContext(&c, nullptr), 0);
        EXPECT_EQ(rtInitContextBuffer(&c, m_mem.get(), (ASN1UINT)m_size), 0);
        c.flags |= flags;
    }
    ~Dec() { rtFreeContext(&c); }
    Dec(const Dec&) = delete;
    Dec& operator=(const Dec&) = delete;

    int recorded() const { return c.errInfo.status; }
    ASN1UINT at() const { return c.bufIndex; }
    const uint8_t* data() const { return m_mem.get(); }
    size_t size() const { return m_size; }
    bool constructed() const { return (c.flags & RT_FLAG_CONSTRUCTED) != 0; }

    ASN1CTXT c;

private:
    size_t m_size;
    std::unique_ptr<uint8_t[]> m_mem;
};

class Enc {
public:
    // A dynamic buffer of `size` octets (16384 for 0), or a static one of that size.
    explicit Enc(int size = 0, bool isStatic = false)
    {
        EXPECT_EQ(rtInitContext(&c, nullptr), 0);
        if (isStatic) {
            m_static.assign((size_t)size, 0xA5);
            EXPECT_EQ(xe_setp(&c, m_static.data(), size), 0);
        } else {
            EXPECT_EQ(xe_setp(&c, nullptr, size), 0);
        }
    }
    ~Enc() { rtFreeContext(&c); }
    Enc(const Enc&) = delete;
    Enc& operator=(const Enc&) = delete;

    // What has been written so far.
    std::string out() const { return testsupport::toHex(xe_getp(const_cast<ASN1CTXT*>(&c)), used()); }
    ASN1UINT used() const { return c.bufSize - 1 - c.bufIndex; }

    ASN1CTXT c;

private:
    std::vector<uint8_t> m_static;
};

// The runtime stands on the C library alone: whatever it does, the platform's thread
// state (its last error) stays as it was.
class LastErrorUntouched {
public:
    LastErrorUntouched() { SetLastError(kMark); }
    ~LastErrorUntouched() { EXPECT_EQ(GetLastError(), kMark); }

private:
    static constexpr DWORD kMark = 0x13572468;
};

// The hex form toHex gives: upper case, no spaces.
inline std::string norm(const std::string& h)
{
    return testsupport::toHex(testsupport::hex(h).data(), testsupport::hex(h).size());
}

}  // namespace bertest
