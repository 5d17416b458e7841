#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// The fuzzer's bytes, taken from the front. What is asked for beyond their end is zero or empty.
class KovaFuzzInput {
public:
    KovaFuzzInput(const uint8_t *pData, size_t nSize) : m_pData(pData), m_nLeft(nSize) {}

    bool IsEmpty() const
    {
        return m_nLeft == 0;
    }
    uint8_t Byte()
    {
        if (m_nLeft == 0)
            return 0;
        m_nLeft--;
        return *m_pData++;
    }
    uint32_t Word()
    {
        const uint32_t nHigh = Byte();
        return nHigh << 8 | Byte();
    }
    uint32_t Long()
    {
        const uint32_t nHigh = Word();
        return nHigh << 16 | Word();
    }
    /// A number below nBound.
    uint32_t Below(uint32_t nBound)
    {
        return Word() % nBound;
    }
    std::vector<uint8_t> Bytes(size_t nCount)
    {
        const size_t nTaken = std::min(nCount, m_nLeft);
        std::vector<uint8_t> bytes(m_pData, m_pData + nTaken);
        m_pData += nTaken;
        m_nLeft -= nTaken;
        return bytes;
    }
    std::string Text(size_t nCount)
    {
        const std::vector<uint8_t> bytes = Bytes(nCount);
        return std::string(bytes.begin(), bytes.end());
    }
    std::vector<uint8_t> Rest()
    {
        return Bytes(m_nLeft);
    }

private:
    const uint8_t *m_pData;
    size_t m_nLeft;
};
