// The library's owning byte string: encoded structures, hashes, keys, names and serial
// numbers all travel in it.
#pragma once

#include "core/export.h"
#include "core/strings.h"

namespace Quorvane {

class CHAINVET_API CBlob {
public:
    CBlob() noexcept : m_cbData(0), m_pbData(nullptr) {}
    // cb 0 gives null data and pb is not read.
    CBlob(const unsigned char* pb, unsigned long cb);
    CBlob(const CBlob& other);
    // cb zero bytes; allocates even for 0.
    explicit CBlob(unsigned long cb);
    ~CBlob();

    // Copies first, so pb may point into this blob.
    void assign(const unsigned char* pb, unsigned long cb);
    CBlob& operator=(const CBlob& other);

    unsigned long cbData() const noexcept { return m_cbData; }
    unsigned char* pbData() const noexcept { return m_pbData; }

    // Growing reallocates to exactly cb bytes (new bytes not zeroed); shrinking only
    // lowers the size.
    void resize_to(unsigned long cb);
    // Size 0; the buffer is kept.
    void clear() noexcept { m_cbData = 0; }
    void swap(CBlob& other) noexcept;
    void reverse() noexcept;
    // Not for the blob itself: that only grows it, leaving the new half unfilled.
    CBlob& operator+=(const CBlob& other);

    bool operator==(const CBlob& other) const noexcept;
    bool operator!=(const CBlob& other) const noexcept { return !(*this == other); }
    bool operator<(const CBlob& other) const noexcept { return compare(other) < 0; }
    bool operator<=(const CBlob& other) const noexcept { return compare(other) <= 0; }
    bool operator>(const CBlob& other) const noexcept { return compare(other) > 0; }
    bool operator>=(const CBlob& other) const noexcept { return compare(other) >= 0; }

    // Raw file contents. A file that cannot be opened throws 0x80070002, a failed read
    // 0x80070570.
    void readFromFile(const char* path);
    void readFromFile(const wchar_t* path);
    void writeToFile(const char* path) const;
    void writeToFile(const wchar_t* path) const;

    // Pairs of hexadecimal digits, white space allowed between pairs; stops silently at
    // the first thing that is not a pair.
    void readFromHexString(const char* text);
    // Upper-case digits, a blank after every n bytes (never at the end); n 0: no blanks.
    CStringProxy writeToHexString(unsigned long n) const;

private:
    int compare(const CBlob& other) const noexcept;

    unsigned long m_cbData;
    unsigned char* m_pbData;
};

#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(CBlob) == 8, "CBlob");
#else
static_assert(sizeof(CBlob) == 16, "CBlob");
#endif

}  // namespace Quorvane
