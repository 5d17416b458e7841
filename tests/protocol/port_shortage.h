#pragma once

#include <atomic>

/// While it lives, no UDP port below nFirstFree can be bound on any address by
/// this program, as if others held them all. One object at a time.
class KovaPortShortage {
public:
    explicit KovaPortShortage(int nFirstFree = 65536);
    ~KovaPortShortage();
    KovaPortShortage(const KovaPortShortage &) = delete;
    KovaPortShortage &operator=(const KovaPortShortage &) = delete;

    /// Ports that were asked for and refused.
    int Refused() const;
};

/// While it lives, the process can open no further descriptor.
class KovaDescriptorShortage {
public:
    KovaDescriptorShortage();
    ~KovaDescriptorShortage();
    KovaDescriptorShortage(const KovaDescriptorShortage &) = delete;
    KovaDescriptorShortage &operator=(const KovaDescriptorShortage &) = delete;

private:
    unsigned long m_nLimit;
};
