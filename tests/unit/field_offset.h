#pragma once

#include <cstddef>
#include <cstdint>

/// Where a field stands in its record. offsetof() is not for records with atomic
/// words; here only addresses are taken, of a record that nobody constructs.
template <typename Record, typename Field> size_t KovaFieldOffset(Field Record::*pField)
{
    alignas(Record) static const unsigned char bytes[sizeof(Record)] = {};
    const Record &record = *reinterpret_cast<const Record *>(bytes);
    return reinterpret_cast<uintptr_t>(&(record.*pField)) - reinterpret_cast<uintptr_t>(bytes);
}
