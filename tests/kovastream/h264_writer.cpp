#include "h264_writer.h"

H264Writer::H264Writer(uint8_t header) : m_bytes{0, 0, 0, 1, header} {}

void H264Writer::Bits(uint32_t value, int count)
{
    while (count-- > 0) {
        m_open = m_open << 1 | (value >> count & 1);
        if (++m_count == 8) {
            m_bytes.push_back(static_cast<uint8_t>(m_open));
            m_open = 0;
            m_count = 0;
        }
    }
}

/// An Exp-Golomb code.
void H264Writer::Number(uint32_t value)
{
    int length = 0;
    while ((value + 1) >> (length + 1) != 0)
        length++;
    Bits(0, length);
    Bits(value + 1, length + 1);
}

H264Writer::Bytes H264Writer::Done()
{
    Bits(1, 1);
    while (m_count != 0)
        Bits(0, 1);
    return m_bytes;
}

H264Writer::Bytes H264Writer::Sps()
{
    H264Writer sps(0x67);
    sps.Bits(77, 8); // Main
    sps.Bits(0, 8);
    sps.Bits(30, 8); // level 3
    sps.Number(0);
    sps.Number(0); // frame numbers of four bits
    sps.Number(0); // order counts in the slices
    sps.Number(4); // of eight bits
    sps.Number(4); // reference pictures
    sps.Bits(0, 1);
    sps.Number(19);
    sps.Number(11);
    sps.Bits(1, 1); // frames only
    sps.Bits(1, 1);
    sps.Bits(0, 2); // no cropping, nothing about the use
    return sps.Done();
}

H264Writer::Bytes H264Writer::Pps()
{
    H264Writer pps(0x68);
    pps.Number(0);
    pps.Number(0);
    pps.Bits(0, 2);
    for (int i = 0; i < 3; i++)
        pps.Number(0);
    pps.Bits(0, 3);
    for (int i = 0; i < 3; i++)
        pps.Number(0);
    pps.Bits(0, 3);
    return pps.Done();
}

H264Writer::Bytes H264Writer::Picture(Slice kind, int order, int frame)
{
    const bool idr = kind == Slice::Idr;
    const bool b = kind == Slice::B;
    H264Writer slice(idr ? 0x65 : b ? 0x01 : 0x41);
    slice.Number(0);
    slice.Number(idr ? 7 : b ? 6 : 5);
    slice.Number(0);
    slice.Bits(static_cast<uint32_t>(frame), 4);
    if (idr)
        slice.Number(0);
    slice.Bits(static_cast<uint32_t>(order), 8);
    if (b)
        slice.Bits(1, 1);
    if (!idr)
        slice.Bits(0, b ? 3 : 2); // the usual reference lists
    if (!b)
        slice.Bits(0, idr ? 2 : 1);
    for (int i = 0; i < 16; i++)
        slice.Bits(0xA5, 8);
    return slice.Done();
}

H264Writer::Bytes H264Writer::Sei(int type, int size)
{
    H264Writer sei(0x06);
    for (int value : {type, size}) {
        for (; value >= 255; value -= 255)
            sei.Bits(255, 8);
        sei.Bits(static_cast<uint32_t>(value), 8);
    }
    for (int i = 0; i < size; i++)
        sei.Bits(0x84, 8);
    return sei.Done();
}
